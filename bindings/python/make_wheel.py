#!/usr/bin/env python3
"""Makes a wheel of the package with the shared libraries in it.  Needs nothing but Python, and no network.

Usage: make_wheel.py FOLDER VERSION LIBRARY...      the libraries' files; the wheel's path is printed
"""

import base64
import hashlib
import os
import platform
import sys
import sysconfig
import time
import zipfile
from pathlib import Path
from typing import Dict, List, Tuple

PACKAGE = Path(__file__).parent / "tav_im"
SUMMARY = "A client of a message gateway: TLS, requests and replies, pushes, messages by a template"


def library_name(path: Path) -> str:
    """The name by which others look for a library: its front up to the first number of its version."""
    front, dot, version = path.name.partition(".so.")
    return f"{front}.so.{version.split('.')[0]}" if dot else path.name


def tag() -> str:
    """For this platform and every Python 3: the libraries are not bound to one, and ask for this C library."""
    machine = sysconfig.get_platform().replace("-", "_").replace(".", "_")
    name, version = platform.libc_ver()
    if name == "glibc" and machine.startswith("linux_"):
        major, minor = version.split(".")[:2]
        machine = machine.replace("linux_", f"manylinux_{major}_{minor}_", 1)
    return f"py3-none-{machine}"


def metadata(version: str, wheel_tag: str) -> Dict[str, bytes]:
    info = f"tav_im-{version}.dist-info"
    about = ["Metadata-Version: 2.1", "Name: tav_im", f"Version: {version}", f"Summary: {SUMMARY}"]
    about += ["Requires-Python: >=3.9", "Classifier: Typing :: Typed", ""]
    wheel = ["Wheel-Version: 1.0", "Generator: make_wheel", "Root-Is-Purelib: false", f"Tag: {wheel_tag}", ""]
    return {f"{info}/METADATA": "\n".join(about).encode(), f"{info}/WHEEL": "\n".join(wheel).encode()}


def record(files: Dict[str, bytes], name: str) -> bytes:
    lines: List[str] = []
    for path, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        lines.append(f"{path},sha256={digest},{len(content)}\n")
    return "".join([*lines, f"{name},,\n"]).encode()


def stamp() -> Tuple[int, int, int, int, int, int]:
    """A wheel of the same sources is the same to the byte, if the time is given."""
    seconds = int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))
    return time.gmtime(max(seconds, 315532800))[:6]


def make(folder: Path, version: str, libraries: List[Path]) -> Path:
    files: Dict[str, bytes] = {}
    for path in sorted(PACKAGE.iterdir()):
        if path.suffix == ".py" or path.name == "py.typed":
            files[f"tav_im/{path.name}"] = path.read_bytes()
    for path in libraries:
        files[f"tav_im/{library_name(path)}"] = path.read_bytes()
    wheel_tag = tag()
    files.update(metadata(version, wheel_tag))
    name = f"tav_im-{version}.dist-info/RECORD"
    files[name] = record(files, name)
    folder.mkdir(parents=True, exist_ok=True)
    wheel = folder / f"tav_im-{version}-{wheel_tag}.whl"
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for path_in_wheel, content in files.items():
            entry = zipfile.ZipInfo(path_in_wheel, stamp())
            entry.external_attr = (0o755 if ".so" in path_in_wheel else 0o644) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, content)
    return wheel


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    print(make(Path(sys.argv[1]), sys.argv[2], [Path(each).resolve() for each in sys.argv[3:]]))
