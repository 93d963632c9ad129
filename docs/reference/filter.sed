# What Doxygen reads in place of a header, by sed -E.

# Macros are what they are.
/\\$/ b
# The hold space says whether the next line has its comment already.
/^ *\/\/\/( |@|$)/ { x; s/.*/documented/; x; b }

# Of a family, its description and what it is made of. The rest tells the templates how rows are packed.
/^struct (VELA_EXPORT )?\w+Family\b/ {
  :head
  /\{$/! { N; b head }
  :body
  n
  /^\};/! { s/.*//; b body }
}

# The tables, those that a line of a macro makes among them, with the base that their users see; then
# their factories. Those of convertors, helpers and items are for their tables.
/^VELA_[A-Z_]+\(/ {
  :line
  /;$/! { N; b line }
}
s/^VELA_(PLAIN|DIRECT|HASH)_FAMILY\((\w+).*/class \2Table final : public \1<\2Family> {}; VELA_MAKES(\1, \2Table)/
s/^VELA_HASH_FAMILY_NAMED\((\w+), (\w+),.*/class \2 final : public HASH<\1> {}; VELA_MAKES(HASH, \2)/
s/^VELA_CLASS\((\w+), (\w+Table), (\w+)FamilyTable\);/class \2 final : public \U\3\E<\1> {};/
s/^class VELA_EXPORT (\w+Table) final : public (\w+)FamilyTable<(\w+)> \{/class \1 final : public \U\2\E<\3> {/
s/^VELA_(PLAIN|HASH)_CLASSES\((\w+), (\w+Table),.*/class \3; VELA_MAKES(\1, \3)/
s/\bVELA_MAKES\(HASH, AclHashTable\)/Orb::Ptr<AclHashTable> AclHashTableIs(const std::string\& name, U8 tableIdx, U8 pipeline);/
s/\bVELA_MAKES\(HASH, (\w+)\)/Orb::Ptr<\1> \1Is(const std::string\& name, U8 tableIdx = 0);/
s/\bVELA_MAKES\(\w+, (\w+)\)/Orb::Ptr<\1> \1Is(const std::string\& name);/
s/^VELA_FACTORY\((\w+Table), (\w+), (\(.*\))\);/Orb::Ptr<\1> \2\3;/
s/\bOrb::Ptr<\w+Table> \w+\(const std::string& name/\/** A new table; `name` is for traces, `tableIdx` says which of several it is. *\/ &/
s/\bclass (\w+) final : public (PLAIN|DIRECT|HASH)</\/** The table of these entries. *\/ &/
s/\bHASH<(\w+)>/HashFamilyTableBase<\1>/
s/\b(PLAIN|DIRECT)<(\w+)>/VelaSwitchApi::SwTable, public VelaSwitchApi::EntryStore<\2::Key, \2::Result>/
s/^VELA_[A-Z_]*(FACTORY|FACTORIES|CONVERTOR|CLASS|MAPPING|LEVELS|CLASSES|NAMES|DECLARE|LIST)\(.*//

# Numbers with bounds.
s/^VELA_RANGED\(\w+, (\w+), (\w+), (\w+), (\w+), (\w+), (\w+), (\w+)\);/class \1 : public Orb::Ranged<\1, \2, \4, \6, \7> { public: static constexpr \2 \3 = \4; \/**< The least value. *\/ static constexpr \2 \5 = \6; \/**< The greatest value. *\/ };/
# What a hash family calls by names of its own.
s/^  using EntryStatus = typename ClassesOf.*/\/** Under the family's own name, such as AclHashEntryStatus. *\/ using EntryStatus = EntryStatusOf<Key, "">;/
s/^  using TableStatus = typename ClassesOf.*/\/** Under the family's own name, such as AclHashTableStatus. *\/ using TableStatus = HashFamilyTableStatus<F>;/
# Keys and results that several tables have.
s/^using \w+Key = PortKeyOf.*/\/** The port whose row it is. *\/ &/
s/^using \w+Result = MulticastResult.*/\/** Who gets a copy of the packet. *\/ &/
# What every value type and counted class says to templates.
/^ *static constexpr const char\* (noTextReason|rangeText) =$/ {
  :text
  /;$/! { N; b text }
  s/.*//
}
s/^ *static (constexpr|inline) .*\b(typeName|sourceUnit|scalar|bareText|inlined|rangeText|isRanged|form|noTextReason|trace)( =|\{).*//
s/^ *VELA_REGISTERED\(.*//
# A name that is taken over from elsewhere is documented there.
s/^ *using (\w+) = (typename )?([A-Za-z_:<>]+::)?\1_?;.*//
# What is protected is for families; what users derive from is public.
s/^ protected:$/ private:/
# All fields are compared, in order.
s/^ *(constexpr )?(auto|bool) operator(<=>|==)\(.*\) const = default;//

# What is said once of many. Lines that have their own words are left as they are.
/^ *(template|requires) / b
x
/documented/ { s/.*//; x; b }
x
s/^ *(friend )?(constexpr |inline |VELA_EXPORT )*void appendText\(/\/** Appends the text form. *\/ &/
s/^ *(friend )?(constexpr |inline |VELA_EXPORT )*void parseText\(/\/** Reads the text form; Orb::TextException for a text that is none. *\/ &/
s/^ *friend (constexpr |VELA_EXPORT )*\w+ hash(Word|Of)\(/\/** What the value adds to a hash. *\/ &/
s/^ *U32 hash\(U32 seed\) const/\/** A hash of all fields; those of different seeds have nothing to do with each other. *\/ &/
s/^ *static void\*? operator (new|delete)\(/\/** In the slab of the table, where there is one. *\/ &/
s/^ .*\boverride \{$/\/** As what it overrides says. *\/ &/
