# Commands on a running process: each tool is asked for by its right name, and what this machine has is run.
mkdir -p "$WORK"
cd "$WORK"
PID=$$
gdb() { printf '%s\n' "$*" | grep -q -- '-p [0-9]* -batch -ex thread apply all bt'; }
BLOCK
[ -s descriptors.txt ] && [ -s process.txt ] && [ -s threads.txt ]
