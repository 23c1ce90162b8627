#!/usr/bin/env bash
# Holds the Python types of a template against mypy, by the calls of the package: what fits is accepted, what does not is
# refused, and Python itself imports them.
# Usage: python.sh TAV PYTHON MYPY PROJECT WORK
set -euo pipefail
tav=$1 python=$2 mypy=$3 project=$4 work=$5
rm -rf "$work"
mkdir -p "$work"
cd "$work"
export MYPYPATH=$project/bindings/python PYTHONPATH=$project/bindings/python PYTHONDONTWRITEBYTECODE=1
"$tav" gen python "$project/docs/tool/chat-1.pml" -o chat.py
"$tav" gen python "$project/tests/tools/gen/world.pml" -o world.py 2>/dev/null
check() { "$mypy" --strict --python-version 3.9 --cache-dir "$work/cache" "$@"; }

cat >good.py <<'PY'
from typing import cast

import chat
import tav_im
import world


def talk(client: tav_im.Client) -> str:
    place: chat.Place = {"room": "hall", "seats": {"ann": 1}}
    hello: chat.Hello = {"user": "ann", "seq": 5, "tags": ["a"], "mood": chat.Mood.good}
    line: chat.Line = {"from": place, "text": "hi", "at": 1700000000000}
    client.send("im.Hello", hello)
    reply = client.request("im.Line", line, reply="im.Line", time_limit=5)
    told = cast(chat.Line, reply.fields)
    tree: world.Tree = {"s": "", "children": [{"s": "below"}], "next": None}
    return told["from"]["room"] + told["text"] + tree["children"][0]["s"]
PY
check good.py chat.py world.py
"$python" -W error -c '
import chat, world
assert chat.Mood.bad == 1 and world.Everything.__required_keys__ >= {"mood", "id"}
assert "phone" in world.Everything.__optional_keys__'

for wrong in '{"user": 7, "seq": 5, "mood": 0}' '{"user": "ann", "mood": 0}' '{"user": "", "seq": 5, "mood": 0, "no": 1}' \
    '{"user": "", "seq": 5, "mood": 0, "tags": [1]}'; do
    printf 'import chat\n\nhello: chat.Hello = %s\n' "$wrong" >bad.py
    if check bad.py >told; then
        echo "mypy takes $wrong for an im.Hello" >&2
        exit 1
    fi
    grep -q 'bad.py:3: error: ' told
done
