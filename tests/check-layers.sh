#!/usr/bin/env bash
# Fails when an include runs upward: a folder may include what stands before it here, and itself.
set -euo pipefail
cd "$(dirname "$0")/.."

below='Orb'
bad=0
check() { # folder, the name its headers are included by
  below="$below|$2"
  if grep -rnE '#include "[A-Za-z]+/' "$1" --include='*.h' --include='*.cpp' |
     grep -vE "#include \"($below)/"; then
    echo "$1 includes from above itself" >&2
    bad=1
  fi
}

check platform/Orb Orb
check platform/Trace Trace
check platform/Ipnet Ipnet
check platform/Bridging Bridging
check platform/Keel Keel
check platform/VelaSwitch VelaSwitch
check platform/VelaSwitchApi VelaSwitchApi
tables=$below
check device device            # sees the platform, never the tables
below=$tables
check bus bus                  # likewise
below=$tables
check platform/DirectBase DirectBase
check platform/HashBase HashBase
check VelaSwitchTable VelaSwitchTable
check VelaRoutes VelaRoutes
below="$below|device"
check agent agent
check service service
check tools tools
exit $bad
