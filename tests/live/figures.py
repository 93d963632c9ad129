"""The numbers of a switch as commands other than `report` tell them, by the names that its page gives to those
that it shows."""
import collections
import decimal
import json

# Every number that the page shows, everything opened: its name and text, or null and text where it has no name. Names
# of things and their bits have numbers too, which are no figures.
SHOWN = """(() => {
  dispatchEvent(new Event("beforeprint"));
  const shown = [...document.querySelectorAll("[data-figure]")].map((each) =>
    [each.dataset.figure, each.ariaLabel || each.textContent]);
  const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  while (texts.nextNode()) {
    const {parentNode, data} = texts.currentNode;
    if (/[0-9]/.test(data) && !parentNode.closest("[data-figure], script, h1, th, strong, a, code, svg, option, .name,"
      + ".mono, .note, .bits, .outcome")) shown.push([null, data]);
  }
  dispatchEvent(new Event("afterprint"));
  return shown;
})()"""


def percent(share):
    return f"{decimal.Decimal(100 * share).quantize(decimal.Decimal('0.1'), decimal.ROUND_HALF_UP)} %"


def counted(number, one, several):
    return f"{number:,} {one if number == 1 else several}"


class Told:
    """`ask(*words)` runs a command. The switch, which `source` names to commands, holds what `events` announce;
    `statuses` and `tables` are what is told of entries and tables, and `marks` what a daemon's bars show. `figures`
    has all of it, by name."""

    def __init__(self, ask, events, source, statuses, tables, marks=()):
        self.ask, self.source, self.marks, self.figures = ask, source, marks, {}
        self.sets, self.tables = {}, {"Route/0": {}}  # rows and ways, by name; tables with what is told of them
        for line in ask("tables").splitlines()[1:]:
            if line.startswith(" "):
                continue
            name, hw_table, *words = line.split()
            table = self.tables.setdefault(name, {"entries": 0, "programmed": 0, "waiting": 0, "peak": 0, "hw": []})
            table["hw"].append(hw_table)
            if hw_table != "(none:":
                rows, ways, table["capacity"] = (int(word) if word.isdigit() else 1 for word in words[:3])
                self.sets.setdefault(hw_table, (rows, ways, []))[2].append(name)
        for line in tables:
            self.tables[f"{line['table']}/{line['instance']}"].update(line)
        for line in self.lines("fit", "--json", events):
            if "randomLoad" in line:
                self.tables[f"{line['table']}/{line['instance']}"]["random"] = line["randomLoad"]
        hits = collections.Counter(f"{event['table']}/0" for event in map(json.loads, open(events)) if event["op"] == "lookup")
        for hw_table, (rows, ways, names) in self.sets.items():
            self.tell_rows(hw_table, rows, ways, names, hits[names[0]])
        for name, table in self.tables.items():
            self.tell_table(name, table)
        self.tell_sums()
        self.tell_routes(statuses)
        self.tell_findings()

    def lines(self, *words):
        return [json.loads(line) for line in self.ask(*words).splitlines()]

    def tell_rows(self, hw_table, rows, ways, names, hits):
        taken = [self.tables[name]["programmed"] for name in names]
        waiting = sum(self.tables[name]["waiting"] for name in names)
        self.figures.update({f"{hw_table} {name}": f"{number:,}" for name, number in zip(names, taken)})
        self.figures.update({f"{hw_table} {what}": text for what, text in {
            "rows": ("" if ways == 1 else f"{ways} ways of ") + counted(rows // ways, "row", "rows"), "hit": f"{hits:,}",
            "taken": f"{sum(taken):,}", "free": f"{rows - sum(taken):,}",
            "waiting": counted(waiting, "entry waits", "entries wait")}.items()})
        for name in names:
            self.tables[name].update(taken=sum(taken), shared=len(names) > 1)

    def tell_table(self, name, table):
        # What routes ask of a level is told by the routes.
        refused = 0 if name.startswith("Lpm") else table["entries"] - table["programmed"]
        told = {"entries": table["entries"], "refused": refused, "waiting": table["waiting"], "peak": table.get("peak")}
        if table.get("capacity"):
            load = percent(table["taken"] / table["capacity"])
            bar = [load + " taken"]
            if table["peak"] and not table["shared"]:
                bar.append(f"at most {percent(table['peak'] / table['capacity'])}")
            if table.get("random"):
                bar.append(f"random keys are refused from {percent(table['random'])}")
            told.update({"taken": table["taken"], "capacity": table["capacity"]})
            self.figures.update({f"{name} bar": ", ".join([*bar, *self.marks]), f"{name} load": load})
        self.figures.update({f"{name} {what}": f"{number:,}" for what, number in told.items() if number is not None})

    def tell_sums(self):
        announced = [table for name, table in self.tables.items() if not name.startswith("Lpm")]
        programmed, entries, waiting = (sum(table[what] for table in announced) for what in ("programmed", "entries", "waiting"))
        self.figures.update({"all programmed": f"{programmed:,}", "all refused": f"{entries - programmed:,}",
                             "all waiting": f"{waiting:,}",
                             "all empty": str(sum(table["entries"] == 0 for table in self.tables.values()))})

    def tell_routes(self, statuses):
        lengths = collections.defaultdict(list)
        for line in statuses:
            if line["table"] == "Route":
                lengths[line["key"]["prefix"].split("/")[1]].append(line["status"] == "programmed")
        for length, there in lengths.items():
            absent = there.count(False)
            self.figures[f"/{length}"] = f"{len(there):,} of /{length}" + (f", {absent:,} of them not in hardware" if absent else "")

    def tell_findings(self):
        live = "--connect" in self.source
        found = [line for line in self.lines("audit", *([] if live else ["--json"]), *self.source) if "finding" in line]
        self.figures["all findings"] = f"{len(found):,}"
        for name, number in collections.Counter(f"{line['table']}/{line['instance']}" for line in found).items():
            self.figures[f"{name} findings"] = counted(number, "finding", "findings")
        for line in found:
            hw_table = self.tables[f"{line['table']}/{line['instance']}"]["hw"][line["hwTableId"]]
            for field in line["fields"]:
                held, wanted = int(field["found"], 16), int(field["expected"], 16)
                for bit in range((held ^ wanted).bit_length()):
                    if (held ^ wanted) >> bit & 1:
                        name = f"{field['field']}, in no field" if field["field"].startswith("bit ") \
                            else f"{field['field']} bit {bit}"
                        self.figures[f"{hw_table} {line['index']}: {name}"] = \
                            f"{name}: is {held >> bit & 1}, should be {wanted >> bit & 1}"

    def tell_refusal(self, refused):
        """The proof of a refusal, by the table and key of what waits."""
        name, key = refused.split(" ", 1)
        why = json.loads(self.ask("why", name, key, "--json", *self.source))
        rows, ways, _ = self.sets[self.tables[name + "/0"]["hw"][0]]

        def place(index):
            return f"way {index * ways // rows}, row {index % (rows // ways)}"
        competing = why["competing"]
        self.figures[refused] = (f"{competing['entries']:,} entries, this one among them, have only "
                                 f"{counted(competing['rows'], 'row', 'rows')} between them")
        self.figures[refused + ": it"] = "has no row: it may take " + " or ".join(place(row["index"]) for row in why["mayTake"])
        for index, keys in zip(competing["indexes"], competing["keys"]):
            lets_in = "; when it goes, the refused one comes in" if keys in why["letsIn"] else ""
            self.figures[f"{refused}: {index}"] = f"lies in {place(index)}{lets_in}"

    def compare(self, browser):
        """How many numbers the page shows, and those that are others, with what they are."""
        shown = browser.run(SHOWN)
        for name, _ in shown:
            if name and name.endswith(": it"):
                self.tell_refusal(name.removesuffix(": it"))
        return len(shown), [(name, text, self.figures.get(name)) for name, text in shown if self.figures.get(name) != text]
