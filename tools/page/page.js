"use strict";
(() => {
  let picture = JSON.parse(document.getElementById("picture").textContent);
  /// Rows of a set, worked out when they are first asked for.
  let models = [];
  const byId = (id) => document.getElementById(id);
  const count = (number) => number.toLocaleString("en");
  const percent = (share) => (100 * share).toFixed(1) + " %";
  const tableName = (table) => table.table + "/" + table.instance;
  const hex = (number) => "0x" + number.toString(16);
  const some = (number, one, several) => count(number) + " " + (number === 1 ? one : several);

  // Elements: attributes by name, functions for events; children are nodes or texts.
  function fill(node, attributes, children) {
    for (const [name, value] of Object.entries(attributes)) {
      if (typeof value === "function") node.addEventListener(name, value);
      else if (value !== false) node.setAttribute(name, value === true ? "" : value);
    }
    node.append(...children.filter((child) => child !== null));
    return node;
  }
  const make = (name, attributes = {}, ...children) => fill(document.createElement(name), attributes, children);
  const draw = (name, attributes = {}, ...children) =>
    fill(document.createElementNS("http://www.w3.org/2000/svg", name), attributes, children);

  /// What is said in numbers, by a name.
  const figure = (name, text) => make("span", {"data-figure": name}, text);

  /// Status texts are read out when they are written, so the same is not written again.
  function say(node, text) {
    if (node.textContent !== text) node.textContent = text;
  }

  // ---- data ----

  /// A column: how many numbers, the least, the bytes of each beyond that, and those in base 64.
  function numbers([length, least, width, text]) {
    const bytes = atob(text);
    const all = new Array(length).fill(least);
    for (let i = 0; i < length; ++i) {
      for (let j = 0; j < width; ++j) all[i] += bytes.charCodeAt(i * width + j) * 2 ** (8 * j);
    }
    return all;
  }

  const dotted = (number) => [24, 16, 8, 0].map((shift) => (number >>> shift) & 255).join(".");
  const parsed = (text) => {
    const parts = /^(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})$/.exec(text.trim());
    if (!parts || parts.slice(1).some((part) => part > 255)) return null;
    return parts.slice(1).reduce((all, part) => all * 256 + Number(part), 0);
  };
  const masked = (address, length) => (length === 0 ? 0 : (address & (-1 << (32 - length))) >>> 0);
  const prefixText = (address, length) => dotted(masked(address, length)) + "/" + length;

  /// The rows of a set that hold something.
  class Rows {
    constructor(set) {
      this.set = set;
      this.ways = set.ways || 1;
      this.perWay = set.rowsPerWay || set.last - set.first + 1;
      this.owners = numbers(set.held.owners);
      this.hits = numbers(set.held.hits);
      this.indexes = numbers(set.held.gaps);
      let at = set.first;
      this.indexes.forEach((gap, n) => { this.indexes[n] = at += gap; });
      this.numbers = new Map(this.indexes.map((index, n) => [index, n]));
      const entries = picture.tables.map(() => 0);
      let owned = 0;
      this.entries = this.owners.map((owner) => (owner === 0 ? -1 : entries[owner]++));
      this.owned = this.owners.map((owner) => (owner === 0 ? -1 : owned++));
      this.words = (set.held.words || []).map(([word, column]) => [word, numbers(column)]);
      this.others = (set.held.others || []).map(numbers);
      this.keys = (set.held.keys || []).map(() => null);
    }
    /// The number of a row among those that hold something; nothing for the others.
    at(index) { return this.numbers.get(index); }
    way(index) { return Math.floor((index - this.set.first) / this.perWay); }
    row(index) { return (index - this.set.first) % this.perWay; }
    place(index) {
      return this.set.ways ? `way ${this.way(index)}, row ${this.row(index)}` : `row ${index}`;
    }
    owner(n) { return picture.tables[this.set.tables[this.owners[n] - 1]]; }
    /// The key of an entry's row, as in events; nothing where it is not told.
    key(n) {
      const owner = this.owners[n] - 1;
      if (owner < 0 || !this.set.held.keys) return undefined;
      this.keys[owner] = this.keys[owner] || this.set.held.keys[owner].map((field) => ({
        ...field, values: field.type === "text" ? field.values : numbers(field.values),
        lengths: field.lengths && numbers(field.lengths)}));
      const key = {};
      for (const field of this.keys[owner]) {
        const value = field.values[this.entries[n]];
        key[field.name] = field.type === "address" ? dotted(value)
          : field.type === "prefix" ? dotted(value) + "/" + field.lengths[this.entries[n]]
          : field.type === "flag" ? value !== 0 : value;
      }
      return "" in key ? key[""] : key;
    }
    /// All rows that the entry of a row may take.
    mayTake(n) {
      const own = this.way(this.indexes[n]);
      if (this.others.length === 0) return [this.indexes[n]];
      let next = 0;
      return Array.from({length: this.ways}, (_, way) => way === own ? this.indexes[n]
        : this.set.first + way * this.perWay + this.others[next++][this.owned[n]]);
    }
    /// The words of a row; what its place decides follows from the layout.
    image(n) {
      const image = [];
      for (const [word] of this.set.registers) image[word] = 0;
      const index = this.indexes[n];
      const told = new Set(this.words.map(([word]) => word));
      for (const [word, values] of this.words) image[word] = values[n];
      for (const [name, first, , content] of this.set.fields) {
        const word = Math.floor(first / 32);
        if (told.has(word)) continue;
        const value = name === "row" ? this.row(index) : name === "way" ? this.way(index) : content || 0;
        image[word] = (image[word] | value << first % 32) >>> 0;
      }
      return image;
    }
    says(n) {
      const owner = this.owners[n] === 0 ? null : this.owner(n);
      if (!owner) return "something that is no entry's";
      const key = this.key(n);
      return tableName(owner) + (key === undefined ? "" : " " + JSON.stringify(key));
    }
  }
  const rowsOf = (number) => (models[number] = models[number] || new Rows(picture.rows[number]));

  /// The bits of a field, the lowest first.
  const bitsOf = (image, [, first, width]) =>
    Array.from({length: width}, (_, i) => (image[(first + i) >> 5] >>> ((first + i) & 31)) & 1);
  const valueOf = (image, field) =>
    bitsOf(image, field).reduce((all, bit, i) => all + bit * 2 ** i, 0);
  const hexOf = (image, field) =>
    "0x" + bitsOf(image, field).reduce((all, bit, i) => all | BigInt(bit) << BigInt(i), 0n).toString(16);

  // ---- the lookup of a route, as the data path does it ----

  /// The shift register of a way, fed with a key from its highest bit on, in whole bytes.
  function shiftRegister(key, bits, width, polynomial) {
    let state = 0;
    for (let i = bits - 1; i >= bits - 8 * Math.ceil(bits / 8); --i) {
      const bit = i < 0 ? 0 : Math.floor(key / 2 ** i) % 2;
      const feedback = ((state >>> (width - 1)) ^ bit) & 1;
      state = ((state << 1) & (2 ** width - 1)) ^ (feedback ? polynomial : 0);
    }
    return state;
  }
  const fieldsOf = (set) => Object.fromEntries(set.fields.map((field) => [field[0], field]));
  const nexthop = (cell) => ({l3LagIndex: cell & 63, rewriteIndex: (cell >> 6) & 63});

  /// Whether the row is one of the key's: what it stores is compared, up to the valid bit.
  function matches(image, fields, level, vrf, address) {
    const stored = level.keyBits - level.hashWidth;
    const key = [[fields.address, address >>> (32 - stored)], [fields.vrf, vrf], [fields.valid, 1]];
    if (key.some(([field, value]) => valueOf(image, field) !== value)) return false;
    const end = fields.vrf[1] + fields.vrf[2];
    return valueOf(image, ["", end, fields.valid[1] - end]) === 0;
  }
  function askHashed(level, vrf, address) {
    const rows = rowsOf(level.rows);
    const fields = fieldsOf(rows.set);
    const key = vrf * 2 ** level.keyBits + (address >>> (32 - level.keyBits));
    const asked = level.polynomials.map((polynomial, way) =>
      way * rows.perWay + shiftRegister(key, level.hashedBits, level.hashWidth, polynomial));
    for (const index of asked) {
      const n = rows.at(index);
      if (n === undefined) continue;
      const image = rows.image(n);
      if (!matches(image, fields, level, vrf, address)) continue;
      const cell = valueOf(image, fields["cell" + ((address >>> (30 - level.keyBits)) & 3)]);
      if (cell >> 12 === 3) return {asked, index, why: "the row holds no route that covers the address"};
      return {asked, index, hit: {...nexthop(cell), realPrefixLen: level.keyBits + 2 - (cell >> 12)}};
    }
    return {asked, why: "no row holds the key"};
  }
  /// The length that a row of the first level tells; null where it tells none, or what none can be.
  function firstLength(image, fields) {
    const lacking = fields.mask ? valueOf(image, fields.mask) : 0;
    return lacking === 0 || lacking > 12 ? null : 12 - lacking;
  }
  function askFirst(level, vrf, address) {
    const rows = rowsOf(level.rows);
    const fields = fieldsOf(rows.set);
    const index = vrf * 2 ** level.keyBits + (address >>> (32 - level.keyBits));
    const n = rows.at(index);
    const image = n === undefined ? null : rows.image(n);
    if (!image || valueOf(image, fields.valid) === 0) return {asked: [index], why: "the row is empty"};
    const hit = nexthop(valueOf(image, fields.cell));
    if (hit.l3LagIndex === 57) return {asked: [index], index, why: "the row has no next hop"};
    return {asked: [index], index, hit: {...hit, realPrefixLen: firstLength(image, fields)}};
  }
  /// What each level says until one answers.
  function lookUp(vrf, address) {
    const steps = [];
    for (const level of picture.ladder) {
      steps.push((level.polynomials ? askHashed : askFirst)(level, vrf, address));
      if (steps[steps.length - 1].hit) break;
    }
    return steps;
  }

  /// The routes that the cells of a level's rows hold, each with its rows.
  function routesOf(level) {
    const rows = rowsOf(level.rows);
    const fields = fieldsOf(rows.set);
    const routes = new Map();
    rows.indexes.forEach((index, n) => {
      if (rows.owners[n] === 0 || rows.set.tables[rows.owners[n] - 1] !== level.table) return;
      const {vrf, prefix} = rows.key(n);
      const base = parsed(prefix.split("/")[0]);
      const image = rows.image(n);
      const cells = level.polynomials ? [0, 1, 2, 3].map((cell) => ["cell" + cell, cell]) : [["cell", 0]];
      for (const [name, cell] of cells) {
        const bits = valueOf(image, fields[name]);
        const hop = nexthop(bits);
        if (level.polynomials ? bits >> 12 === 3 : hop.l3LagIndex === 57) continue;
        const length = level.polynomials ? level.keyBits + 2 - (bits >> 12) : firstLength(image, fields);
        const text = `${vrf}:` + (length === null ? `${dotted(base)}, whose length is not told,`
          : prefixText((base | cell << (30 - level.keyBits)) >>> 0, length)) +
          ` to LAG ${hop.l3LagIndex}, rewrite ${hop.rewriteIndex}`;
        if (!routes.has(text)) routes.set(text, new Set());
        routes.get(text).add(index);
      }
    });
    return [...routes];
  }

  // ---- the overview ----

  function showHead() {
    const totals = picture.totals;
    document.title = picture.profile + ": switch tables";
    byId("name").textContent = picture.profile;
    const told = [["entries in hardware", "programmed"], ["of an earlier run", "unclaimed"], ["refused", "refused"],
      ["of them waiting", "waiting"], ["audit findings", "findings"]];
    byId("totals").replaceChildren(...told
      .filter(([, name]) => totals[name] !== 0 || name !== "unclaimed")
      .map(([what, name]) => make("div", {}, make("dt", {}, what),
        make("dd", {}, figure("all " + name, count(totals[name]))))));
    byId("marks-note").hidden = !picture.tables.some((table) => table.marks);
    say(byId("state"), picture.desiredKnown ? "" : "What is desired is not known: this is what registers hold.");
  }

  function bar(table) {
    const at = (share) => `left: ${(100 * Math.min(share, 1)).toFixed(2)}%`;
    // Of rows that tables share nobody keeps the most that was taken.
    const peak = picture.rows[table.rows]?.tables.length === 1 ? table.peak / table.capacity : 0;
    const says = [percent(table.load) + " taken"];
    if (peak) says.push("at most " + percent(peak));
    if (table.randomLoad) says.push("random keys are refused from " + percent(table.randomLoad));
    if (table.marks) says.push(`too full above ${table.marks.high} %, until it is at ${table.marks.low} %`);
    return make("div", {class: "bar", role: "img", "data-figure": tableName(table) + " bar", "aria-label": says.join(", "), title: says.join(", ")},
      make("span", {class: "taken", style: `width: ${(100 * Math.min(table.load, 1)).toFixed(2)}%`}),
      peak ? make("span", {class: "peak", style: at(peak)}) : null,
      table.randomLoad ? make("span", {class: "random", style: at(table.randomLoad)}) : null,
      table.marks ? make("span", {class: "mark", style: at(table.marks.high / 100)}) : null);
  }
  const inUse = (table) => table.entries + table.unclaimed !== 0;

  function overviewRow(table) {
    const name = tableName(table);
    const full = table.marks && 100 * table.load > table.marks.high;
    const number = (head, value) => make("td", {class: "number" + (value && head !== "entries" && head !== "peak" ? " notable" : ""),
      "data-head": head, "data-value": value}, value === "" ? "" : figure(`${name} ${head}`, count(value)));
    const known = table.capacity > 0;
    return make("tr", {},
      make("th", {scope: "row"}, table.rows === undefined ? name
        : make("a", {href: "#rows-" + table.rows, click: () => { byId("rows-" + table.rows).open = true; }}, name)),
      make("td", {}, known ? bar(table) : null),
      make("td", {class: "number" + (full ? " notable" : ""), "data-value": known ? table.load : ""},
        ...(known ? [figure(name + " load", percent(table.load)), full ? " too full" : ""] : [])),
      make("td", {class: "number", "data-head": "rows taken", "data-value": known ? table.taken : ""},
        ...(known ? [figure(name + " taken", count(table.taken)), " of ", figure(name + " capacity", count(table.capacity))] : [])),
      number("entries", table.entries + table.unclaimed), number("refused", table.refused),
      number("waiting", table.waiting), number("peak", table.peak ?? ""));
  }
  function showOverview() {
    const all = picture.tables.filter((table) => byId("empty").checked || inUse(table));
    const heads = ["table", "load", "percent", "rows taken", "entries", "refused", "waiting", "peak"];
    byId("empty-count").replaceChildren(figure("all empty", count(picture.tables.filter((table) => !inUse(table)).length)));
    byId("overview").replaceChildren(all.length === 0 ? make("p", {}, "No table has entries.")
      : make("table", {class: "overview"},
        make("thead", {}, make("tr", {}, ...heads.map((head, i) =>
          make("th", {scope: "col", class: i > 1 ? "number" : ""}, head)))),
        make("tbody", {}, ...all.map(overviewRow))));
  }

  // ---- routes ----

  const LISTED = 500;
  function routeList(level) {
    const list = make("ul", {class: "list mono"});
    const routes = routesOf(level);
    const rows = rowsOf(level.rows);
    list.append(...routes.slice(0, LISTED).map(([text, [first, ...others]]) => make("li", {},
      `${text} (${rows.place(first)}${others.length ? " and " + some(others.length, "other", "others") : ""})`)));
    if (routes.length > LISTED) list.append(make("li", {}, some(routes.length - LISTED, "more", "more")));
    if (routes.length === 0) list.append(make("li", {}, "none"));
    return list;
  }
  function rung(level, number) {
    const table = picture.tables[level.table];
    const told = level.routes.filter(([, all]) => all !== 0).map(([length, all, there]) => figure("/" + length,
      `${count(all)} of /${length}` + (there === all ? "" : `, ${count(all - there)} of them not in hardware`)));
    const list = opened("routes-" + table.table, false,
      told.length ? told.flatMap((each, i) => [i === 0 ? "Routes: " : "; ", each]) : ["No routes"],
      () => make("div", {}, routeList(level)));
    const [longest, shortest] = [level.routes[0][0], level.routes[level.routes.length - 1][0]];
    return make("li", {class: "rung", "data-level": number},
      make("strong", {}, table.table), make("span", {class: "mono"}, `/${shortest} to /${longest}`), bar(table),
      make("div", {class: "wide outcome"}, ""), make("div", {class: "wide"}, list));
  }
  function showLadder() {
    byId("ladder").replaceChildren(...picture.ladder.map(rung));
    if (byId("vrf").options.length !== picture.vrfs) {
      byId("vrf").replaceChildren(...Array.from({length: picture.vrfs}, (_, vrf) => make("option", {value: vrf}, vrf)));
    }
    answer();
  }

  function outcomeText(level, step, vrf, address) {
    const rows = rowsOf(level.rows);
    const key = `${vrf}:${prefixText(address, level.keyBits)}`;
    const asked = step.asked.map((index) => rows.place(index)).join(" and ");
    const found = step.hit
      ? `${rows.place(step.index)} answers: LAG ${step.hit.l3LagIndex}, rewrite ${step.hit.rewriteIndex}`
      : step.why;
    return `${key} in ${asked}: ${found}`;
  }
  let lighting = [];
  let answered = "";
  /// Looks the address up; the levels light up as they are asked.
  function answer() {
    const address = parsed(byId("address").value);
    const vrf = Number(byId("vrf").value);
    const output = byId("answer");
    lighting.forEach(clearTimeout);
    const rungs = [...byId("ladder").children];
    for (const each of rungs) {
      each.className = "rung";
      each.querySelector(".outcome").textContent = "";
    }
    delete output.dataset.hit;
    if (address === null) {
      answered = "";
      say(output, byId("address").value.trim() === "" ? "" : "An address is four numbers up to 255: 192.0.2.17");
      return;
    }
    const steps = lookUp(vrf, address);
    const hit = steps[steps.length - 1].hit || null;
    output.dataset.hit = JSON.stringify(hit);
    const length = hit && (hit.realPrefixLen === null ? "a route whose length registers do not tell"
      : prefixText(address, hit.realPrefixLen));
    say(output, hit
      ? `${dotted(address)} in VRF ${vrf} takes ${length}: LAG ${hit.l3LagIndex}, rewrite ${hit.rewriteIndex}`
      : `No route answers for ${dotted(address)} in VRF ${vrf}`);
    const light = (step, i) => {
      rungs[i].classList.add("asked");
      if (step.hit) rungs[i].classList.add("found");
      rungs[i].querySelector(".outcome").textContent = outcomeText(picture.ladder[i], step, vrf, address);
    };
    const before = answered;
    answered = JSON.stringify([vrf, address, steps]);
    const still = answered === before || matchMedia("(prefers-reduced-motion: reduce)").matches;
    lighting = still ? [] : steps.map((step, i) => setTimeout(light, 90 * i, step, i));
    if (still) steps.forEach(light);
  }

  // ---- refusals ----

  const keyText = (entry) => picture.tables[entry.table].table + " " + JSON.stringify(entry.key);
  const shortened = (text, most) => (text.length > most ? text.slice(0, most - 1) + "…" : text);

  /// Keys on the left, the rows that they have between them on the right.
  function proofDrawing(refusal, rows) {
    const entries = [...refusal.competing.entriesThere, refusal];
    const indexes = refusal.competing.entriesThere.map((entry) => entry.index).sort((a, b) => a - b);
    const labels = entries.map((entry) => shortened(JSON.stringify(entry.key).replace(/["{}]/g, ""), 42));
    const step = 26;
    const left = 16 + 6.8 * Math.max(...labels.map((label) => label.length));
    const right = left + 170;
    const width = right + 130;
    const height = step * entries.length + 8;
    const keyY = (i) => 18 + step * i;
    const rowY = (index) => 18 + step * (indexes.indexOf(index) + 0.5);
    const edges = entries.flatMap((entry, i) => entry.mayTake.map((index) => draw("path", {
      class: entry === refusal ? "wants" : entry.index === index ? "lies" : "edge",
      d: `M${left} ${keyY(i)} C${left + 70} ${keyY(i)} ${right - 70} ${rowY(index)} ${right} ${rowY(index)}`})));
    const keys = entries.map((entry, i) => draw("text",
      {x: left - 8, y: keyY(i) + 4, "text-anchor": "end", "font-size": 11, class: entry === refusal ? "refused" : ""},
      labels[i], draw("title", {}, keyText(entry))));
    const places = indexes.map((index) => draw("text",
      {x: right + 8, y: rowY(index) + 4, "font-size": 11}, rows.place(index)));
    return draw("svg", {viewBox: `0 0 ${width} ${height}`, style: `max-width: ${width}px`, role: "img",
      "aria-label": `${entries.length} keys and ${indexes.length} rows: one key too many. All are listed below.`},
      ...edges, ...keys, ...places);
  }
  function proofList(refusal, rows) {
    const line = (entry, where) => make("li", {}, make("code", {}, keyText(entry)), " ",
      figure(`${keyText(refusal)}: ${entry.index ?? "it"}`, where));
    return make("ul", {class: "list"}, ...refusal.competing.entriesThere.map((entry) => line(entry,
      `lies in ${rows.place(entry.index)}` +
      (refusal.letsIn.includes(entry.index) ? "; when it goes, the refused one comes in" : ""))),
      line(refusal, "has no row: it may take " + refusal.mayTake.map((index) => rows.place(index)).join(" or ")));
  }
  function refusalBody(refusal, rows) {
    const {entries, rows: rowCount} = refusal.competing;
    const says = make("p", {}, figure(keyText(refusal),
      `${count(entries)} entries, this one among them, have only ${some(rowCount, "row", "rows")} between them`),
    ": no arrangement has room for all.");
    if (!refusal.competing.entriesThere) return make("div", {}, says);
    return make("div", {}, says, make("p", {class: "note"},
      "Thick: where an entry lies. Thin: where else it might. Dashed: the rows of the refused one, all taken."),
      proofDrawing(refusal, rows), proofList(refusal, rows), refusal.letsIn.length ? null
        : make("p", {}, "Whichever of them goes, somebody comes in who waits longer or needs fewer moves."));
  }
  function refusalItem(refusal, number, open) {
    const rows = rowsOf(number);
    const routes = (refusal.routes || []).map((route) => `${route.vrf}:${route.prefix}`).join(", ");
    return opened(`refusal-${number}-${JSON.stringify(refusal.key)}`, open,
      [make("code", {}, keyText(refusal)), ...(routes ? [" of ", make("code", {}, routes)] : [])], () => refusalBody(refusal, rows));
  }
  /// How many keys a drawing would have.
  const proofSize = (refusal) => (refusal.competing.entriesThere ? refusal.competing.entries : Infinity);
  function refusalGroup(group, shown) {
    return opened(`refusals-${group.rows}`, group.first.includes(shown),
      [make("strong", {}, picture.rows[group.rows].hwTable), ": ",
        figure(picture.rows[group.rows].hwTable + " waiting", some(group.waiting, "entry waits", "entries wait")), " for room"],
      () => make("div", {},
        group.waiting > group.first.length ? make("p", {class: "note"}, "Those that have waited longest:") : null,
        ...group.first.map((refusal) => refusalItem(refusal, group.rows, refusal === shown))));
  }
  /// The one with the smallest drawing is open from the beginning.
  function showRefusals() {
    const all = picture.refusals.flatMap((group) => group.first);
    const least = Math.min(...all.map(proofSize));
    const shown = all.find((refusal) => proofSize(refusal) === least);
    byId("refusal-list").replaceChildren(...(all.length === 0 ? [make("p", {}, "Nothing waits for room.")]
      : picture.refusals.map((group) => refusalGroup(group, shown))));
  }

  // ---- the layout of a row ----

  /// The width of what fits, in bits a line: register words are cut in halves or quarters.
  const bitsALine = () => (innerWidth < 420 ? 8 : innerWidth < 760 ? 16 : 32);

  /// One line of a register word; with an image its bits.
  function laneDrawing(fields, word, from, bits, image, flipped) {
    const cell = 22;
    const x = (bit) => (from + bits - 1 - (bit - 32 * word)) * cell;
    const parts = [];
    for (const [number, [name, first, width]] of fields.entries()) {
      const low = Math.max(first, 32 * word + from);
      const high = Math.min(first + width, 32 * word + from + bits) - 1;
      if (low > high) continue;
      const span = (high - low + 1) * cell;
      parts.push(draw("rect", {class: "field" + (number % 2 ? " odd" : ""), x: x(high), y: 0, width: span, height: 22},
        draw("title", {}, `${name}: bits ${first} to ${first + width - 1}`)));
      if (span > 6.9 * name.length + 4) {
        parts.push(draw("text", {x: x(high) + span / 2, y: 15, "text-anchor": "middle", "font-size": 11}, name));
      } else {
        parts.push(draw("text", {x: x(high) + span / 2, y: 15, "text-anchor": "middle", "font-size": 10, class: "dim"}, number + 1));
      }
    }
    for (let bit = 32 * word + from; bit < 32 * word + from + bits; ++bit) {
      const differs = flipped && (flipped[word] >>> (bit & 31)) & 1;
      parts.push(draw("rect", {class: differs ? "flipped" : "cell", x: x(bit), y: 22, width: cell, height: image ? 20 : 6}));
      if (!image) continue;
      const value = (image[word] >>> (bit & 31)) & 1;
      parts.push(draw("text", {x: x(bit) + cell / 2, y: 36, "text-anchor": "middle", "font-size": 12,
        class: differs ? "on" : value ? "" : "zero"}, value));
    }
    return parts;
  }
  /// The row bit by bit, a register word after the other, the highest bit on the left.
  function layoutDrawing(set, image, flipped) {
    const drawing = make("div", {class: "layout"});
    const drawn = () => drawing.replaceChildren(rowDrawing(set, image, flipped));
    layouts.set(drawing, drawn);
    drawn();
    return drawing;
  }
  const layouts = new WeakMap();
  function rowDrawing(set, image, flipped) {
    const bits = bitsALine();
    const fields = set.fields;
    const lane = image ? 64 : 50;
    let y = 0;
    const lanes = set.registers.flatMap(([word, path]) => Array.from({length: 32 / bits}, (_, part) => {
      const from = 32 - bits * (part + 1);
      const group = draw("g", {transform: `translate(1 ${y + 16})`},
        draw("text", {x: 0, y: -4, "font-size": 11, class: "dim"},
          `${path.split("/").pop()} ${from + bits - 1} to ${from}` + (image ? ` = ${hex((image[word] >>> from) % 2 ** bits)}` : "")),
        ...laneDrawing(fields, word, from, bits, image, flipped));
      y += lane;
      return group;
    }));
    return draw("svg", {viewBox: `0 0 ${bits * 22 + 2} ${y}`, style: `max-width: ${bits * 22 + 2}px`, role: "img",
      "aria-label": "The row bit by bit; its fields are listed below."}, ...lanes);
  }
  function fieldTable(set, image) {
    const heads = ["", "field", "bits", ...(image ? ["value"] : [])];
    return make("table", {class: "bits"},
      make("thead", {}, make("tr", {}, ...heads.map((head) => make("th", {scope: "col"}, head)))),
      make("tbody", {}, ...set.fields.map((field, i) => make("tr", {}, make("td", {}, i + 1),
        make("th", {scope: "row"}, field[0]),
        make("td", {}, field[2] === 1 ? field[1] : `${field[1]} to ${field[1] + field[2] - 1}`),
        image ? make("td", {class: "mono"}, hexOf(image, field)) : null))));
  }
  const byWord = (set, values) => {
    const words = [];
    set.registers.forEach(([word], i) => { words[word] = values[i]; });
    return words;
  };

  // ---- audit findings ----

  function flippedBits(set, finding, image, flipped) {
    return set.registers.flatMap(([word]) => Array.from({length: 32}, (_, bit) => bit)
      .filter((bit) => (flipped[word] >>> bit) & 1).map((bit) => {
        const at = 32 * word + bit;
        const field = set.fields.find(([, first, width]) => at >= first && at < first + width);
        const value = (image[word] >>> bit) & 1;
        const name = field ? `${field[0]} bit ${at - field[1]}` : `bit ${at}, in no field`;
        return make("li", {}, figure(`${finding.hwTable} ${finding.index}: ${name}`, `${name}: is ${value}, should be ${1 - value}`));
      }));
  }
  function findingBody(finding) {
    if (!finding.words || finding.rows === undefined) return make("div", {}, make("p", {}, "It is in no row that could be read."));
    const set = picture.rows[finding.rows];
    const image = byWord(set, finding.words);
    const flipped = byWord(set, finding.flipped);
    const bits = flippedBits(set, finding, image, flipped);
    if (bits.length === 0) {
      bits.push(make("li", {}, picture.desiredKnown ? "By now it is as it should be." : "No row of the table can be so."));
    }
    return make("div", {}, layoutDrawing(set, image, flipped),
      make("ul", {class: "list"}, ...bits));
  }
  function findingItem(finding, table, open) {
    const where = finding.index === undefined ? "in no row" : `row ${finding.index}`;
    const key = finding.key === undefined ? finding.holds : finding.key;
    return opened(`finding-${finding.hwTable}-${where}-${JSON.stringify(key)}`, open,
      [`${finding.finding}${finding.corrupt ? ", corrupt" : ""}: `, make("span", {class: "name"}, `${where} of ${finding.hwTable}`), " ",
        make("code", {}, key === undefined ? "" : tableName(table) + " " + JSON.stringify(key))],
      () => findingBody(finding));
  }
  function showFindings() {
    const all = picture.findings.flatMap((group, g) => {
      const table = picture.tables[group.table];
      return [make("h3", {}, make("span", {class: "name"}, tableName(table)), ": ",
        figure(tableName(table) + " findings", some(group.found, "finding", "findings")),
        group.found > group.first.length ? ", of which the first are" : ""),
        ...group.first.map((finding, i) => findingItem(finding, table, g === 0 && i === 0))];
    });
    byId("finding-list").replaceChildren(...(all.length ? all : [make("p", {},
      picture.desiredKnown ? "Every row that was compared holds what it should." : "No row is corrupt.")]));
  }

  // ---- the rows of a table ----

  const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
  const cellSize = (perWay) => (perWay <= 64 ? 22 : perWay <= 512 ? 12 : perWay <= 2048 ? 8 : perWay <= 8192 ? 6 : 4);

  /// Room for the mark of a row in the first column.
  const EDGE = 4;
  /// The rows of a set, way by way, on a canvas; `choose(index, written)` hears what is pointed at.
  class RowMap {
    constructor(rows, choose) {
      this.rows = rows;
      this.choose = choose;
      this.at = rows.set.first;
      this.pointedAt = false;
      /// As it was drawn; 0 while it is not.
      this.width = 0;
      this.canvas = make("canvas", {tabindex: 0, role: "application",
        "aria-label": `Rows of ${rows.set.hwTable}: arrow keys move, Page Up and Down change the way, Enter writes the row into the layout`,
        keydown: (event) => this.keyed(event), pointermove: (event) => this.pointed(event, false),
        click: (event) => this.pointed(event, true)});
    }
    measure() {
      this.cell = cellSize(this.rows.perWay);
      this.columns = Math.max(8, Math.floor((this.width - 2 * EDGE) / this.cell));
      this.columns = Math.min(this.columns, this.rows.perWay);
      this.lines = Math.ceil(this.rows.perWay / this.columns);
      this.block = this.lines * this.cell + (this.rows.set.ways ? 22 : 6);
    }
    corner(index) {
      const row = this.rows.row(index);
      return [EDGE + row % this.columns * this.cell,
        this.rows.way(index) * this.block + Math.floor(row / this.columns) * this.cell + (this.rows.set.ways ? 18 : 2)];
    }
    /// Draws all of it, unless it is not to be seen.
    show() {
      this.width = this.canvas.clientWidth;
      if (this.width === 0) return;
      this.measure();
      const scale = devicePixelRatio || 1;
      const height = this.block * this.rows.ways + 2;
      this.canvas.style.height = height + "px";
      for (const canvas of [this.canvas, this.base = document.createElement("canvas")]) {
        canvas.width = this.width * scale;
        canvas.height = height * scale;
      }
      const paint = this.base.getContext("2d");
      paint.scale(scale, scale);
      this.paintRows(paint);
      this.mark();
    }
    paintRows(paint) {
      const colours = {free: colour("free"), taken: colour("taken"), other: colour("other"), hit: colour("accent"), paper: colour("paper"), dim: colour("dim")};
      const size = this.cell > 4 ? this.cell - 1 : this.cell;
      const {set, perWay, ways} = this.rows;
      paint.font = "11px system-ui, sans-serif";
      for (let way = 0; way < ways; ++way) {
        paint.fillStyle = colours.dim;
        if (set.ways) paint.fillText("way " + way, 0, way * this.block + 12);
        paint.fillStyle = colours.free;
        for (let row = 0; row < perWay; ++row) {
          const [x, y] = this.corner(set.first + way * perWay + row);
          paint.fillRect(x, y, size, size);
        }
      }
      this.rows.indexes.forEach((index, n) => {
        const [x, y] = this.corner(index);
        paint.fillStyle = this.rows.hits[n] ? colours.hit : this.rows.owners[n] > 1 ? colours.other : colours.taken;
        if (this.rows.owners[n] === 0) {
          paint.strokeStyle = colours.dim;
          return paint.strokeRect(x + 0.5, y + 0.5, size - 1, size - 1);
        }
        paint.fillRect(x, y, size, size);
        if (!this.rows.hits[n]) return;
        // The dot tells it from others where colours do not.
        const dot = Math.max(2, Math.round(size / 3));
        paint.fillStyle = colours.paper;
        paint.fillRect(x + (size - dot) / 2, y + (size - dot) / 2, dot, dot);
      });
    }
    /// The row that is pointed at, and the others that its entry may take.
    mark() {
      if (!this.width) return;
      const paint = this.canvas.getContext("2d");
      const scale = devicePixelRatio || 1;
      paint.setTransform(1, 0, 0, 1, 0, 0);
      paint.clearRect(0, 0, this.canvas.width, this.canvas.height);
      paint.drawImage(this.base, 0, 0);
      if (!this.pointedAt) return;
      paint.scale(scale, scale);
      const n = this.rows.at(this.at);
      const others = n === undefined || this.rows.owners[n] === 0 ? [] : this.rows.mayTake(n).filter((index) => index !== this.at);
      const [fromX, fromY] = this.corner(this.at).map((edge) => edge + this.cell / 2);
      for (const index of others) {
        const [x, y] = this.corner(index).map((edge) => edge + this.cell / 2);
        paint.strokeStyle = colour("accent");
        paint.lineWidth = 1.5;
        paint.beginPath();
        paint.moveTo(fromX, fromY);
        paint.lineTo(x, y);
        paint.stroke();
        paint.beginPath();
        paint.arc(x, y, this.cell / 2 + 3, 0, 2 * Math.PI);
        paint.stroke();
      }
      const [x, y] = this.corner(this.at);
      paint.lineWidth = 3;
      paint.strokeStyle = colour("paper");
      paint.strokeRect(x - 2, y - 2, this.cell + 3, this.cell + 3);
      paint.lineWidth = 2;
      paint.strokeStyle = colour("ink");
      paint.strokeRect(x - 2, y - 2, this.cell + 3, this.cell + 3);
    }
    moveTo(index, written) {
      this.at = Math.min(Math.max(index, this.rows.set.first), this.rows.set.last);
      this.pointedAt = true;
      this.mark();
      this.choose(this.at, written);
    }
    pointed(event, written) {
      const box = this.canvas.getBoundingClientRect();
      const way = Math.floor((event.clientY - box.top) / this.block);
      const line = Math.floor((event.clientY - box.top - way * this.block - (this.rows.set.ways ? 18 : 2)) / this.cell);
      const column = Math.floor((event.clientX - box.left - EDGE) / this.cell);
      const row = line * this.columns + column;
      if (way < 0 || way >= this.rows.ways || line < 0 || column < 0 || column >= this.columns || row >= this.rows.perWay) return;
      const index = this.rows.set.first + way * this.rows.perWay + row;
      if (written || index !== this.at || !this.pointedAt) this.moveTo(index, written);
    }
    keyed(event) {
      const steps = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -this.columns, ArrowDown: this.columns,
        PageUp: -this.rows.perWay, PageDown: this.rows.perWay};
      if (event.key in steps) this.moveTo(this.at + steps[event.key], false);
      else if (event.key === "Enter") this.moveTo(this.at, true);
      else return;
      event.preventDefault();
    }
  }

  function legend(rows) {
    const {set} = rows;
    const owned = rows.owners.filter((owner) => owner !== 0).length;
    const mark = (name, what, number, text) => make("li", {}, make("i", {style: `background: ${name}`}),
      figure(`${set.hwTable} ${what}`, count(number)), " ", text);
    const named = set.tables.length === 1 ? [mark("var(--taken)", "taken", owned, "taken")]
      : set.tables.map((table, i) => mark(i === 0 ? "var(--taken)" : "var(--other)", tableName(picture.tables[table]),
        rows.owners.filter((owner) => owner === i + 1).length, make("span", {class: "name"}, "of " + tableName(picture.tables[table]))));
    return make("ul", {class: "legend"}, ...named,
      mark("radial-gradient(var(--paper) 30%, var(--accent) 35%)", "hit", rows.hits.filter((hit) => hit).length, "hit by packets"),
      mark("var(--free)", "free", rows.perWay * rows.ways - rows.indexes.length, "free"),
      rows.indexes.length === owned ? null
        : mark("transparent", "stray", rows.indexes.length - owned, "hold what is no entry's"));
  }
  function rowText(rows, index) {
    const n = rows.at(index);
    if (n === undefined) return [`${rows.place(index)} is free.`];
    const text = [`${rows.place(index)}: ${rows.says(n)}${rows.hits[n] ? "; packets hit it" : ""}.`];
    if (rows.owners[n] === 0) return text;
    for (const other of rows.mayTake(n).filter((each) => each !== index)) {
      const m = rows.at(other);
      text.push(`It may lie in ${rows.place(other)} as well, ` + (m === undefined ? "which is free." : `where ${rows.says(m)} is.`));
    }
    return text;
  }
  function search(rows, text, after) {
    const size = rows.indexes.length;
    for (let i = 1; i <= size; ++i) {
      const n = (after + i) % size;
      if (rows.owners[n] !== 0 && JSON.stringify(rows.key(n) ?? "").includes(text)) return n;
    }
    return -1;
  }
  /// What readers chose in the rows of a set: it stays when the page is shown anew.
  const chosen = new Map();
  function setBody(number) {
    const rows = rowsOf(number);
    const {set} = rows;
    const choice = chosen.get(number) || {text: ""};
    chosen.set(number, choice);
    const told = make("div", {class: "told", role: "status"}, make("p", {}, "Point at a row."));
    const layout = make("div", {}, layoutDrawing(set), fieldTable(set));
    const write = (index) => {
      const n = rows.at(index);
      if (n === undefined || !set.held.words) return layout.replaceChildren(layoutDrawing(set), fieldTable(set));
      const image = rows.image(n);
      layout.replaceChildren(make("h3", {}, `${rows.place(index)}, as registers hold it`),
        layoutDrawing(set, image), fieldTable(set, image));
    };
    const tell = (index) => told.replaceChildren(...rowText(rows, index).map((line) => make("p", {}, line)));
    const map = new RowMap(rows, (index, written) => {
      choice.at = index;
      if (written) choice.written = index;
      tell(index);
      if (written) write(index);
    });
    if (choice.at !== undefined) {
      map.at = choice.at;
      map.pointedAt = true;
      tell(choice.at);
    }
    if (choice.written !== undefined) write(choice.written);
    const wanted = make("input", {type: "text", placeholder: "part of a key", spellcheck: "false",
      input: () => { choice.text = wanted.value; }});
    wanted.value = choice.text;
    const find = make("form", {class: "fields", submit: (event) => {
      event.preventDefault();
      const n = search(rows, wanted.value, rows.at(map.at) ?? -1);
      if (n < 0) told.replaceChildren(make("p", {}, `No entry's key has ${wanted.value} in it.`));
      else map.moveTo(rows.indexes[n], true);
    }}, make("label", {}, "Find an entry ", wanted), make("button", {type: "submit"}, "Next"));
    const note = set.held.words ? null : make("p", {class: "note"}, "Of so many rows this page tells which are taken, no more.");
    const copies = set.copies ? `Held alike in ${[set.hwTable, ...set.copies].join(", ")}.` : "";
    maps.add(map);
    // Drawn when it is first seen, and when it is opened again.
    new ResizeObserver(() => { if (map.canvas.clientWidth !== map.width) map.show(); }).observe(map.canvas);
    return make("div", {}, copies ? make("p", {class: "note"}, copies) : null, note, legend(rows), map.canvas, told,
      set.held.words ? find : null, make("h3", {}, "Layout"),
      make("p", {class: "note"}, `Registers ${set.registers[0][1].replace(/[^/]*$/, "")}; the highest bit is on the left.`), layout);
  }
  const maps = new Set();

  function setItem(set, number) {
    const names = set.tables.map((table) => tableName(picture.tables[table])).join(", ");
    const shape = set.ways ? `${set.ways} ways of ${some(set.rowsPerWay, "row", "rows")}` : some(set.last - set.first + 1, "row", "rows");
    const first = picture.tables[set.tables[0]];
    const item = opened(`rows-${number}`, false, [make("strong", {}, set.hwTable), " ", make("span", {class: "name"}, names), ": ",
      figure(set.hwTable + " rows", shape), ", ", figure(tableName(first) + " load", percent(first.load)), " taken"],
    () => setBody(number));
    item.id = `rows-${number}`;
    return item;
  }
  function showRows() {
    maps.clear();
    byId("row-sets").replaceChildren(...picture.rows.map(setItem));
  }

  /// What readers opened stays open when the page is shown anew.
  const wasOpened = new Map();
  const bodies = new WeakMap();
  function opened(name, open, summary, body) {
    const item = make("details", {"data-name": name, toggle: () => {
      wasOpened.set(name, item.open);
      if (item.open) withBody(item);
    }}, make("summary", {}, ...summary));
    bodies.set(item, body);
    item.open = wasOpened.get(name) ?? open;
    if (item.open) withBody(item);
    return item;
  }
  function withBody(item) {
    if (item.children.length === 1) item.append(bodies.get(item)());
  }
  /// What is closed does not print.
  let openedToPrint = [];
  function openAll() {
    for (let item; (item = document.querySelector("details:not([open])"));) {
      item.open = true;
      withBody(item);
      openedToPrint.push(item);
    }
    redraw();
  }
  function closeAgain() {
    for (const item of openedToPrint) item.open = false;
    openedToPrint = [];
  }

  function showAll() {
    showHead();
    showOverview();
    showLadder();
    showRefusals();
    showFindings();
    showRows();
  }
  function redraw() {
    for (const map of maps) map.show();
    for (const drawing of document.querySelectorAll(".layout")) layouts.get(drawing)();
  }

  /// Where an element is, so that one in the same place is found when the page is shown anew: the
  /// nearest around it that has a name, and the way from there.
  function placeOf(node) {
    const way = [];
    while (!node.id && !node.dataset.name) {
      way.unshift([...node.parentNode.children].indexOf(node));
      node = node.parentNode;
    }
    const name = node.id ? "#" + CSS.escape(node.id) : `[data-name="${CSS.escape(node.dataset.name)}"]`;
    return () => way.reduce((at, child) => at?.children[child], document.querySelector(name));
  }
  /// Shows another picture in the place of this one: focus, caret and what is scrolled stay.
  function showInPlace(next) {
    const focused = document.querySelector("main :focus");
    const caret = focused?.matches("input[type=text]") && [focused.selectionStart, focused.selectionEnd, focused.selectionDirection];
    const focusedPlace = focused && placeOf(focused);
    const scrolled = [...document.querySelectorAll("main .list")].filter((list) => list.scrollTop !== 0)
      .map((list) => [placeOf(list), list.scrollTop]);
    const top = scrollY;
    picture = next;
    models = [];
    showAll();
    redraw();
    for (const [place, at] of scrolled) place()?.scrollTo(0, at);
    const again = focused && !focused.isConnected && focusedPlace();
    if (again) {
      again.focus({preventScroll: true});
      if (caret && again.setSelectionRange) again.setSelectionRange(...caret);
    }
    scrollTo({top, behavior: "instant"});
  }
  /// A daemon's page asks it for its figures now and then.
  let shown = "";
  async function refresh() {
    if (!document.hidden) {
      try {
        const reply = await fetch("picture.json", {cache: "no-store"});
        if (!reply.ok) throw new Error(reply.statusText);
        const text = await reply.text();
        if (text !== shown) showInPlace(JSON.parse(text));
        shown = text;
      } catch (error) {
        shown = "";
        say(byId("state"), "The daemon does not answer; this is what it said last.");
      }
    }
    setTimeout(refresh, 1000 * picture.refresh);
  }

  byId("empty").addEventListener("change", showOverview);
  byId("address").addEventListener("input", answer);
  byId("vrf").addEventListener("change", answer);
  byId("ask").addEventListener("submit", (event) => { event.preventDefault(); answer(); });
  addEventListener("resize", redraw);
  addEventListener("beforeprint", openAll);
  addEventListener("afterprint", closeAgain);
  for (const query of ["(prefers-color-scheme: dark)", "print"]) matchMedia(query).addEventListener("change", redraw);
  showAll();
  requestAnimationFrame(() => performance.mark("overview"));
  if (picture.refresh) setTimeout(refresh, 1000 * picture.refresh);
})();
