#!/bin/sh
# Puts a script into a program's place that runs it in an emulator.
#
#     emulate.sh EMULATOR LIBRARY PROGRAM     LIBRARY: QuietEmulator.cpp, built for the host
#
# GoogleTest cannot count the threads of an emulated process, and warns of that where it forks for a death test; so it
# starts its program anew for each.
set -eu
mv "$3" "$3.elf"
program=$( realpath "$3.elf" )
cat >"$3" <<END
#!/bin/sh
GTEST_DEATH_TEST_STYLE=threadsafe LD_PRELOAD="$2" exec "$1" -U LD_PRELOAD -0 "\$0" "$program" "\$@"
END
chmod +x "$3"
