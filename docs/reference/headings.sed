# Headings with the names by which links within a text know them, by sed -E.
/^##+ / {
  h
  s/^#+ //
  s/[^A-Za-z0-9 -]//g
  y/ABCDEFGHIJKLMNOPQRSTUVWXYZ /abcdefghijklmnopqrstuvwxyz-/
  s/.*/ {#&}/
  H
  x
  s/\n//
}
