"""Whether all that the pages below some folders link to is there.  Usage: links.py FOLDER..."""

import re
import sys
from pathlib import Path

links = 0
missing = []
for folder in sys.argv[1:]:
    for page in Path(folder).rglob("*.md"):
        text = re.sub(r"^```.*?^```", "", page.read_text(), flags=re.DOTALL | re.MULTILINE)
        for target in re.findall(r"\]\(([^)#\s]+)(?:#[^)]*)?\)", text):
            if "://" in target:
                continue
            links += 1
            if not (page.parent / target).exists():
                missing.append(f"{page}: {target}")
print("\n".join(missing))
# Where the pages are compressed there are hardly any.
if missing or links < 100:
    sys.exit(f"{len(missing)} of {links} links lead nowhere")
