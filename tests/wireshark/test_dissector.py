"""The dissector for Wireshark on captures: what it shows, and that no capture brings it down."""

from __future__ import annotations

import os
import random
import re
import shutil
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import List, Optional

from captures import PORT, Capture, Gateway, Relay, Stream, captured_streams

PROJECT = Path(os.environ["TAV_PROJECT"])
DISSECTOR = PROJECT / "tools" / "wireshark" / "tav.lua"
CHAT = PROJECT / "docs" / "tool" / "chat-1.pml"
TALKED = PROJECT / "examples" / "template.pml"
HELLO = bytes.fromhex("".join((PROJECT / "docs" / "tool" / "hello.hex").read_text().split()))
# What tshark says of a dissector that failed.
FAILURES = re.compile(r"Lua Error|[Dd]issector bug|\[Malformed Packet|traceback", re.MULTILINE)


def frame(packet: bytes) -> bytes:
    return len(packet).to_bytes(4, "big") + packet


def mobile(body: bytes, code: int = 0x1F01, version: int = 4) -> bytes:
    head = version.to_bytes(2, "big") + b"\0" + code.to_bytes(2, "big") + b"\0" + b"\0\1" + bytes(8)
    return frame(head + (b"\0\0" if version >= 6 else b"") + body)


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def tshark(
        self, path: Path, *options: str, template: Optional[Path] = CHAT, decode: str = f"tcp.port=={PORT},tav"
    ) -> str:
        command = ["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", str(path), *options]
        if decode:
            command += ["-d", decode]
        if template is not None:
            command += ["-o", f"tav.template:{template}"]
        environment = {**os.environ, "HOME": str(self.folder), "TZ": "UTC", "LC_ALL": "C.UTF-8"}
        ran = subprocess.run(command, capture_output=True, timeout=100, env=environment)
        text = ran.stdout.decode("utf-8", "strict")
        errors = ran.stderr.decode("utf-8", "replace")
        self.assertEqual(ran.returncode, 0, errors)
        failure = FAILURES.search(text + errors)
        self.assertIsNone(failure, (text + errors)[max(0, failure.start() - 2000) : failure.end() + 500] if failure else "")
        return text

    def shown(self, capture: Capture, *options: str, **how: object) -> str:
        path = capture.write(self.folder / "capture.pcap")
        return self.tshark(path, "-O", "tav,tav_gate", *options, **how)  # type: ignore[arg-type]

    def shown_bytes(self, *payloads: bytes, **how: object) -> str:
        return self.shown(captured_streams(list(payloads)), **how)

    def dumped(self, payload: bytes, template: Optional[Path] = CHAT, *options: str) -> List[str]:
        """What the tool shows of the same bytes, with four blanks where it has two and without offsets."""
        command = [os.environ["TAV_TOOL"], "dump", "--color", "never", *options]
        if template is not None:
            command += ["--template", str(template)]
        ran = subprocess.run([*command, "-"], input=payload, capture_output=True, timeout=60)
        lines = []
        for line in ran.stdout.decode().splitlines():
            indent, text = re.match(r"[0-9a-f]+  ( *)(.*)", line).groups()  # type: ignore[union-attr]
            lines.append(indent * 2 + text)
        return lines


def own_lines(lines: List[str]) -> List[str]:
    """Without what Wireshark adds in brackets, which are no tags, and without the length, which the frame tells."""
    return [line for line in lines if not re.match(r" *(\[(?!-?\d+\])|length: )", line)]


def tree_of(text: str) -> List[str]:
    """The lines of the frames alone, without those that only Wireshark has."""
    lines = []
    for line in text.splitlines():
        if re.match(r"(frame: |heartbeat)", line) or lines and line.startswith("    "):
            lines.append(line)
    return own_lines(lines)


class Messages(Case):
    def test_they_are_shown_as_the_tool_shows_them(self) -> None:
        place = bytes.fromhex("FF0128 01F10468616C6C 02FF0128 00FF0128 01F10161 020105 FF0129 FF0129 FF0129")
        line = bytes.fromhex("FF0128 01") + place + bytes.fromhex("02F1026869 030600") [:5] + bytes.fromhex("FF0129")
        for payload in (
            HELLO,
            HELLO * 3,
            mobile(line, 0x1F02),
            mobile(b"", 0x1F01),
            mobile(b"\1\2\3", 0x2222),
            mobile(bytes.fromhex("FF0128 010101 010104 7F0105FF 020400FFFFFF 03F1017A FF0129"), 0x1F01, 6),
            mobile(bytes.fromhex("FF0128 01F1022278 0208FFFFFFFFFFFFFFFF 0800 05F10961C3A9FF0A1B220942 FF0129")),
            bytes(4) + HELLO + bytes(4),
            mobile(bytes.fromhex("FF0128 01F105616E")),
            mobile(bytes.fromhex("FF0128 FF0128")),
            mobile(bytes.fromhex("FF0128 0177")),
        ):
            with self.subTest(payload=payload.hex()):
                expected = self.dumped(payload)
                self.assertGreater(len(expected), 1)
                self.assertEqual(tree_of(self.shown_bytes(payload)), expected)

    def test_without_a_template_they_have_tags(self) -> None:
        expected = self.dumped(HELLO, None)
        self.assertIn('                [1]: text "ann"', expected)
        self.assertEqual(tree_of(self.shown_bytes(HELLO, template=None)), expected)

    def test_protected_values_are_masked_until_they_are_asked_for(self) -> None:
        self.assertNotIn("hunter2", self.shown_bytes(HELLO))
        revealed = self.shown(captured_streams([HELLO]), "-o", "tav.reveal:TRUE")
        self.assertIn('[5] secret: string? "hunter2"', revealed)

    def test_what_stands_below_a_protected_field_is_masked_too(self) -> None:
        text = "F106" + b"hunter".hex()
        for secret in (f"FF0128 01 {text} FF0129", f"FF0128 00 {text} 00 FF0128 02 {text} FF0129 FF0129", "0105" + b"hunte".hex()):
            with self.subTest(secret=secret):
                payload = mobile(bytes.fromhex(f"FF0128 01 F10161 05 {secret} 06 010107 FF0129"))
                shown = self.shown_bytes(payload)
                self.assertNotIn("hunte", shown)
                self.assertIn("***[", shown)
                self.assertEqual(tree_of(shown), self.dumped(payload))
                revealed = self.shown(captured_streams([payload]), "-o", "tav.reveal:TRUE")
                self.assertEqual(tree_of(revealed), self.dumped(payload, CHAT, "--reveal"))

    def test_what_is_odd_is_noted_as_by_the_tool(self) -> None:
        object_of = "FF0128 {} FF0129"
        for code, body, note in (
            (0x1F01, "010105", "number 5  (a number where im.Hello is expected)"),
            (0x1F01, "F10161", 'text "a"  (text where im.Hello is expected)'),
            (0x1F01, "0109" + "61" * 9, "(bytes where im.Hello is expected)"),
            (0x1F01, object_of.format("01 010105"), "(bytes where the template has string)"),
            (0x1F01, object_of.format("01 FF0128 FF0129"), "[1] user: object  (an object where the template has string)"),
            (0x1F01, object_of.format("02 F10131"), "(text where the template has uint32)"),
            (0x1F01, object_of.format("02 01050000000001"), "(5 bytes where uint32 has 4)"),
            (0x1F01, object_of.format("03 F10161"), '[3] tags: list{string} "a"  (text where the template has list{string})'),
            (0x1F01, object_of.format("03 0100"), "(bytes where the template has list{string})"),
            (0x1F01, object_of.format("03 FF0128 00 FF0128 FF0129 FF0129"), "-: object  (an object where the template has string)"),
            (0x1F01, object_of.format("04 010107"), "[4] mood: enum{Mood} 7  (no member of Mood)"),
            (0x1F01, object_of.format("04 0104FFFFFFFF"), "[4] mood: enum{Mood} -1  (no member of Mood)"),
            (0x1F01, object_of.format("04 FF0128 FF0129"), "(an object where the template has enum)"),
            (0x1F01, object_of.format("7F 010105"), "(no field of im.Hello has this tag)"),
            (0x1F02, object_of.format("01 010105"), "[1] from: im.Place 5  (a number where the template has im.Place)"),
            (0x1F02, object_of.format("01 FF0128 02 FF0128 00 010105 FF0129 FF0129"), "-: number 5  (a number where a map has an entry)"),
        ):  # fmt: skip
            with self.subTest(body=body):
                payload = mobile(bytes.fromhex(body), code)
                text = self.shown_bytes(payload)
                self.assertEqual(tree_of(text), self.dumped(payload))
                self.assertIn(note, text)
                self.assertNotEqual(self.tshark(self.folder / "capture.pcap", "-Y", "tav.odd"), "")

    def test_old_packets_mask_what_is_protected(self) -> None:
        template = self.folder / "template.pml"
        template.write_text("B:object( __class__(x.B) __code__(05) [1]pin:string({***}) )")
        body = bytes.fromhex("FF0128 01F106") + b"s3cret" + bytes.fromhex("FF0129")
        packet = bytes.fromhex("00000000 010100 010100 010100 010107 010100 F100 010105 01") + bytes([len(body)]) + body + b"\0"
        text = self.shown_bytes(frame(packet), template=template)
        self.assertIn("[1] pin: string ***[6]", text)
        self.assertNotIn("73 33 63", text)
        for condition in ('tav.bytes contains "73 33"', 'tav.body contains "s3cret"'):
            self.assertEqual(self.tshark(self.folder / "capture.pcap", "-Y", condition, template=template), "")

    def test_bodies_of_classes_are_no_field_until_they_are_asked_for(self) -> None:
        path = captured_streams([HELLO]).write(self.folder / "capture.pcap")
        self.assertEqual(self.tshark(path, "-Y", 'tav.body contains "hunter2"'), "")
        self.assertNotEqual(self.tshark(path, "-Y", 'tav.body contains "hunter2"', "-o", "tav.reveal:TRUE"), "")

    def test_what_is_broken_is_no_null(self) -> None:
        path = captured_streams([mobile(bytes.fromhex("FF0128 01F105616E"))]).write(self.folder / "capture.pcap")
        self.assertEqual(len(self.tshark(path, "-Y", "tav.broken").splitlines()), 1)
        self.assertEqual(self.tshark(path, "-Y", "tav.null"), "")

    def test_filters_find_them(self) -> None:
        path = captured_streams([HELLO, mobile(b"", 0x1F02)]).write(self.folder / "capture.pcap")
        for condition, packets in (
            ('tav.class == "im.Hello"', 1),
            ("tav.code == 0x1f02", 1),
            ('tav.field == "user" && tav.text == "ann"', 1),
            ("tav.number == 5", 1),
            ("tav.sequence == 1", 2),
            ('tav.text contains "hunter2"', 0),
            ("tav.broken", 0),
        ):
            with self.subTest(condition=condition):
                self.assertEqual(len(self.tshark(path, "-Y", condition).splitlines()), packets)

    def test_filters_find_numbers_above_those_with_a_sign(self) -> None:
        template = self.folder / "template.pml"
        template.write_text("N:object( __class__(x.N) __code__(1F01) [1]n:uint64() )")
        bodies = (b"\xff" * 8, bytes(7) + b"\x80", b"\xff" * 7 + b"\x7f", b"\5")
        payloads = [mobile(b"\xff\1\x28\1\1" + bytes([len(body)]) + body + b"\xff\1\x29") for body in bodies]
        path = captured_streams(payloads).write(self.folder / "capture.pcap")
        for condition, packets in (
            ("tav.unsigned == 18446744073709551615", 1),
            ("tav.unsigned", 2),
            ("tav.number == 9223372036854775807", 1),
            ("tav.number < 0", 0),
        ):
            with self.subTest(condition=condition):
                self.assertEqual(len(self.tshark(path, "-Y", condition, template=template).splitlines()), packets)

    def test_the_column_names_them(self) -> None:
        path = captured_streams([HELLO + bytes(4) + mobile(b"", 0x2222)]).write(self.folder / "capture.pcap")
        self.assertIn("TAV", self.tshark(path, "-Y", "tav"))
        self.assertIn("im.Hello seq 1, heartbeat, 0x2222 seq 1", self.tshark(path, "-Y", "tav"))

    def test_frames_go_over_segments(self) -> None:
        for segment in (1, 3, 7, 64, 5000):
            with self.subTest(segment=segment):
                text = self.shown(captured_streams([HELLO * 4], segment))
                self.assertEqual(tree_of(text), self.dumped(HELLO * 4))

    def test_old_packets_show_code_body_and_option(self) -> None:
        packet = bytes.fromhex(
            "00000000 010100 010100 010100 010107 010100 F100 010105 010AFF01280101 0105 FF0129"
            "0120FF0128010101000200030004 0005F1000600080101000D0101000EF100FF0129"
        )
        text = self.shown_bytes(frame(packet), template=None)
        for line in ("old packet: ", "sequence: number 7", "code: 0x0005", "body: 10 bytes", "[1] version: number 0"):
            self.assertIn(line, text)
        # The class that the code stands for is a line of the dissector's own.
        self.assertEqual([line for line in tree_of(text) if "code: 0x" not in line], self.dumped(frame(packet), None))
        self.assertEqual(len(self.tshark(self.folder / "capture.pcap", "-Y", "tav.code == 5 && tav.sequence == 7").splitlines()), 1)

    def test_old_packets_that_end_between_their_values_are_broken(self) -> None:
        payload = frame(bytes.fromhex("00000000 010100 010100 010100 010107"))
        text = self.shown_bytes(payload, template=None)
        self.assertIn("broken here: an old packet has nine values, and 4 are there", text)
        self.assertEqual(tree_of(text), self.dumped(payload, None))

    def test_gate_messages_are_shown_as_the_tool_shows_them(self) -> None:
        for message in (
            "02030400 00000005 0607 0004 68656164 626F647921",
            "01030400 FFFFFFFB 0607 0004 68656164 626F647921",
            "03000001 00000001 0000 0000 FF012801F1026869FF0129",
            "08000002 00000000 0000 0000",
            "07000004 00000000 0000 0009 7B7D",
        ):
            payload = bytes.fromhex(message)
            with self.subTest(message=message):
                capture = Capture()
                capture.udp(payload)
                text = self.shown(capture, decode=f"udp.port=={PORT},tav_gate", template=None)
                lines = own_lines([line for line in text.splitlines() if line.startswith("    ")])
                self.assertEqual(self.dumped(payload, None, "--as", "gate")[1:], lines)

    def test_bodies_may_be_gate_messages(self) -> None:
        body = bytes.fromhex("01030400 00000005 0607 0004 68656164 626F647921")
        text = self.shown(captured_streams([mobile(body, 0x2222)]), "-o", "tav.body:gate messages")
        self.assertIn('head: "head"', text)
        self.assertIn('body: "body!"', text)


class Templates(Case):
    def template(self, text: str) -> Path:
        path = self.folder / "template.pml"
        path.write_text(text)
        return path

    def test_negative_numbers_of_a_byte_are_as_the_library_writes_them(self) -> None:
        template = self.template("C:object( __class__(x.C) __code__(0x1F01) [1]small:int8() )")
        payload = mobile(bytes.fromhex("FF0128 01 0102FFFF FF0129"))
        text = self.shown_bytes(payload, template=template)
        self.assertNotIn("where int8", text)
        self.assertEqual(tree_of(text), self.dumped(payload, template))

    def test_all_that_a_field_may_be_has_its_name(self) -> None:
        template = self.template(
            """(* (nested *) A:object( __class__(x.A) __code__(0x1F01) __super__(x.Base)
                [2]flag:(true) [3]short:short() [4]when:time?() [5]in:object( __class__(x.In) [1]deep:Integer() )
                [6]all:list{x.B}() [7]by:map{int64,x.B}() [8]moods:list{Mood}(m:enum{Mood}(good(0) bad(1)))
                [9]"q^"t"(x) [10]maybe:optional{string}({.***..}) [11]real:double[3]() )
               B:object( __class__(x.B) [1]name:string() )
               Base:object( __class__(x.Base) __super__(x.A) [1]base:bytes() )"""
        )
        body = bytes.fromhex(
            "FF0128 01 0103010203 02 010101 03 0102FEFF 04 0100 05 FF0128 01 010107 FF0129"
            "06 FF0128 00 FF0128 01 F10162 FF0129 FF0129 07 FF0128 00 FF0128 01 010109 02 FF0128 01 F10163 FF0129 FF0129 FF0129"
            "08 FF0128 00 010101 FF0129 0A F106 736563726574 0B 0108 000000000000F83F FF0129"
        )
        payload = mobile(body)
        text = self.shown_bytes(payload, template=template)
        # The tool knows no names for what lists hold.
        self.assertEqual(tree_of(text.replace("-: enum 1 (bad)", "-: enum 1")), self.dumped(payload, template))
        for line in (
            "[1] base: bytes 01 02 03",
            "[2] flag: bool? true",
            "[3] short: int16 -2",
            "[5] in: x.In",
            "[1] deep: int32? 7",
            "[6] all: list{x.B}",
            '[1] name: string "b"',
            "[7] by: map{int64,x.B}",
            "key: int64 9",
            '[1] name: string "c"',
            "-: enum 1 (bad)",
            "[10] maybe: string? s***et[6]",
            "[11] real: double 1.5",
        ):
            with self.subTest(line=line):
                self.assertIn(line, text)

    def test_a_broken_one_is_told_with_its_place(self) -> None:
        for text, told in (
            ("A:object(\n  [1]a:string(\n", ":3:1: the closing bracket of the unit [1]a is missing"),
            ("A:object(\n  [1]a:string() )\n)", ":3:1: a ) too many"),
            ("A:object", ":1:9: the bracket of the unit A is missing"),
        ):
            with self.subTest(text=text):
                path = self.template(text)
                shown = self.shown_bytes(HELLO, template=path)
                self.assertIn(f"the template can't be used: {path}{told}", shown)
                self.assertIn('[1]: text "ann"', shown)
        self.assertIn("No such file", self.shown_bytes(HELLO, template=self.folder / "nowhere.pml"))

    def test_one_without_classes_is_told(self) -> None:
        self.assertIn("has no class", self.shown_bytes(HELLO, template=self.template("(* nothing *) A:object([1]a:string())")))

    def test_the_later_class_of_a_code_and_the_first_name_of_a_number_are_taken(self) -> None:
        classes = "".join(f"C{i}:object( __class__(x.C{i}) __code__(1F01) [4]m:enum{{M}}(a{i}(1) b{i}(1)) )" for i in range(40))
        template = self.template(classes)
        text = self.shown_bytes(HELLO, template=template)
        self.assertIn("[4] m: enum{M} 1 (a39)", text)
        self.assertEqual(tree_of(text), self.dumped(HELLO, template))

    def test_long_ones_take_time_in_proportion(self) -> None:
        for text in ('"' + " " * 1000000 + 'x" b:string()', '"a" ' * 1000000):
            self.assertIn("(A)", self.shown_bytes(HELLO, template=self.template(f"A:object(__class__(A) __code__(1F01) [1]a:string({text}))")))

    def test_deep_and_circular_ones_cost_no_stack(self) -> None:
        deep = "[1]a:object(" * 50000 + "[1]b:int32()" + ")" * 50000
        self.assertIn("frame: ", self.shown_bytes(HELLO, template=self.template(f"A:object(__class__(A) __code__(1F01) {deep})")))
        types = "list{" * 50000 + "int" + "}" * 50000
        self.assertIn("frame: ", self.shown_bytes(HELLO, template=self.template(f"A:object(__class__(A) __code__(1F01) [1]a:{types}())")))
        optional = "optional{" * 50000 + "int" + "}" * 50000
        self.assertIn("frame: ", self.shown_bytes(HELLO, template=self.template(f"A:object(__class__(A) __code__(1F01) [1]a:{optional}())")))
        ring = "A:object(__class__(A) __code__(1F01) __super__(B)) B:object(__class__(B) __super__(A))"
        self.assertIn("no field of A has this tag", self.shown_bytes(HELLO, template=self.template(ring)))


class Hostile(Case):
    def test_each_cut_is_shown(self) -> None:
        text = self.shown_bytes(*[HELLO[:size] for size in range(1, len(HELLO))])
        # A stream that ends within its first frame has none that is whole.
        self.assertNotIn("im.Hello", text.replace("(im.Hello)", ""))

    def test_each_byte_may_be_another_one(self) -> None:
        payloads = []
        for at in range(len(HELLO)):
            for byte in (0x00, 0x01, 0x28, 0x7F, 0x80, 0xF4, 0xFF):
                payloads.append(HELLO[:at] + bytes([byte]) + HELLO[at + 1 :])
        self.assertIn("im.Hello", self.shown_bytes(*payloads))

    def test_random_values_are_shown_as_the_tool_shows_them(self) -> None:
        source = random.Random(7)
        pieces = ["FF0128", "FF0129", "00", "01", "02", "03", "04", "05", "09", "F103616263", "0101FF", "0104FFFFFFFF", "0108FFFFFFFFFFFFFF7F", "0108FEFFFFFFFFFFFFFF", "0105FFFFFFFFFF", "FF"]
        payloads = []
        for _ in range(150):
            body = "FF0128" + "".join(source.choice(pieces) for _ in range(source.randrange(20)))
            payloads.append(mobile(bytes.fromhex(body), source.choice([0x1F01, 0x1F02, 0x2222]), 4))
        expected = [line for payload in payloads for line in self.dumped(payload)]
        # Long texts are cut earlier than by the tool.
        self.assertEqual([line[:120] for line in tree_of(self.shown_bytes(*payloads))], [line[:120] for line in expected])

    def test_random_bytes_are_shown(self) -> None:
        source = random.Random(7)
        alphabet = [0x00, 0x01, 0x02, 0x04, 0x28, 0x29, 0xF1, 0xF4, 0xFF]
        payloads = []
        for _ in range(300):
            body = bytes(source.choice(alphabet) for _ in range(source.randrange(200)))
            payloads.append(mobile(b"\xff\x01\x28" + body, source.choice([0x1F01, 0x1F02, 0x2222]), source.choice([1, 4, 6])))
            payloads.append(frame(b"\0\0\0\0" + body))
            payloads.append(bytes(source.randrange(256) for _ in range(source.randrange(1, 200))))
        self.assertIn("broken here", self.shown_bytes(*payloads))

    def test_depth_costs_no_stack(self) -> None:
        for depth in (90, 98, 99, 100, 101, 500, 200000):
            with self.subTest(depth=depth):
                body = b"\xff\x01\x28" + b"\1\xff\x01\x28" * depth + b"\xff\x01\x29" * (depth + 1)
                text = self.shown(captured_streams([mobile(body)], 60000), template=None)
                self.assertIn("frame: ", text)
                self.assertNotIn("broken here", text)
                self.assertEqual("at depth" in text, depth > 98)

    def test_no_message_is_shown_without_end(self) -> None:
        body = b"\xff\x01\x28" + b"\1\0" * 500000 + b"\xff\x01\x29"
        text = self.shown(captured_streams([mobile(body)], 60000), template=None)
        self.assertIn("more, not shown", text)
        self.assertLess(text.count("\n"), 30000)
        self.assertIn("more of frames, not shown", self.shown(captured_streams([bytes(60000)], 60000), "-o", "tav.most_values:50"))

    def test_sizes_that_lie_end_the_message_alone(self) -> None:
        sizes = (b"\4\xff\xff\xff\xff", b"\4\xff\xff\xff\x7f", b"\4\0\0\0\x80", b"\xf4\xff\xff\xff\xff", b"\3\xff\xff\xff", b"\2\xff\xff")
        for size in sizes:
            with self.subTest(size=size.hex()):
                text = self.shown_bytes(mobile(b"\xff\x01\x28\1" + size + b"abc") + HELLO)
                self.assertIn("says that it has", text)
                self.assertIn('user: string "ann"', text)
        for length in ("01000000", "FFFFFFFF", "80000000"):
            with self.subTest(length=length):
                self.assertIn("a frame has at most 16777215 bytes", self.shown_bytes(bytes.fromhex(length) + HELLO))
        self.assertNotIn("broken", self.shown_bytes(bytes.fromhex("00FFFFFF") + HELLO))

    def test_a_frame_of_the_largest_size_is_shown(self) -> None:
        size = 0xFFFFFF - 16
        text_size = size - 3 - 1 - 5 - 3
        body = b"\xff\x01\x28\1\xf4" + text_size.to_bytes(4, "little") + b"z" * text_size + b"\xff\x01\x29"
        text = self.shown(captured_streams([mobile(body)], 60000), template=None)
        self.assertIn(f'"... ({text_size} bytes)', text)
        self.assertNotIn("broken", text)

    def test_packets_that_the_capture_has_cut_are_shown(self) -> None:
        for cut in (40, 41, 47, 60, 83, 107):
            capture = Capture(cut)
            Stream(capture, 20000).send(0, HELLO * 3)
            capture.udp(bytes.fromhex("02030400 00000005 0607 0004 68656164 626F647921"))
            self.shown(capture)
            self.shown(capture, decode=f"udp.port=={PORT},tav_gate")

    def test_gate_messages_may_end_anywhere(self) -> None:
        message = bytes.fromhex("03030400 00000005 0607 0009 FF0128 010101FF0129 FF0128 01F1026869FF0129")
        capture = Capture()
        for size in range(1, len(message)):
            capture.udp(message[:size])
        text = self.shown(capture, decode=f"udp.port=={PORT},tav_gate", template=None)
        self.assertIn("a gate message has a header of 12 bytes, and 11 are there", text)
        self.assertIn("the head has 9 bytes, and 8 are there", text)

    def test_texts_are_shown_as_texts(self) -> None:
        evil = b'\x1b[31m\r\n\0"<script>\xc2\x9b31m\xff\\' + "\u202ea\u2066".encode()
        payload = mobile(b"\xff\x01\x28\1\xf1" + bytes([len(evil)]) + evil + b"\xff\x01\x29")
        text = self.shown_bytes(payload)
        self.assertEqual(tree_of(text), self.dumped(payload))
        self.assertIn(r'"\x1B[31m\x0D\n\x00\"<script>\u009B31m\xFF\\\u202Ea\u2066"', text)
        self.assertNotIn("\x1b", text)


class Talks(Case):
    """Captures of a connection that the library made, decrypted by the keys that it gave."""

    def captured(self, version: str) -> Path:
        gateway = Gateway(os.environ["TAV_GATEWAY"], self.folder)
        self.addCleanup(gateway.close)
        relay = Relay(("127.0.0.1", gateway.port))
        keys = self.folder / "keys.log"
        talk = [os.environ["TAV_TALK"], "127.0.0.1", str(relay.port), str(gateway.ca), str(TALKED), str(keys), version]
        subprocess.run(talk, check=True, timeout=60)
        return relay.capture().write(self.folder / "talk.pcap")

    def read(self, path: Path, *options: str, decode: str = f"tls.port=={PORT},tav") -> str:
        keys = f"tls.keylog_file:{self.folder / 'keys.log'}"
        return self.tshark(path, "-o", keys, *options, template=TALKED, decode=decode)

    def check(self, path: Path, decode: str) -> None:
        text = self.read(path, "-O", "tav", decode=decode)
        for line in (
            "code: 0x3001 (chat.Say)",
            "code: 0x3002 (chat.Said)",
            '[3] text: string "good morning"',
            "[2] password: string ***[11]",
            "[4] at: time 1700000000000 (2023-11-14T22:13:20.000Z)",
            "[5] mood: enum{Mood} 1 (merry)",
            '-: string "sea"',
            '[1] city: string "Utrecht"',
            "[2] latitude: double 52.5",
            # One message over three records, of the version that has an extension.
            '"... (40000 bytes)',
            "version: 6",
            '[3] traceId: text "trace-7"',
            "code: 0x7003 (chat.Pushed)",
            "affirm: 0x20 (asks for a receipt)",
            "affirm: 0x30 (a receipt)",
            '[3] text: string "good night"',
            "old packet: ",
            'target: text "bob"',
        ):
            with self.subTest(line=line):
                self.assertIn(line, text)
        self.assertEqual(text.count("code: 0x7001 (chat.PushMe)"), 20)
        self.assertNotIn("broken", text)
        self.assertNotIn("open sesame", text)
        self.assertIn('[1]: text "hi"', text)

    def test_tls_1_2_is_shown_by_the_port_that_is_named(self) -> None:
        self.check(self.captured("12"), f"tls.port=={PORT},tav")

    def test_what_is_no_such_port_is_known_by_its_first_bytes(self) -> None:
        self.check(self.captured("13"), "")

    def test_the_preference_names_ports(self) -> None:
        path = self.captured("12")
        self.assertIn("good morning", self.read(path, "-O", "tav", "-o", f"tav.ports:{PORT - 1}-{PORT}", decode=""))

    def test_without_keys_nothing_is_shown(self) -> None:
        path = self.captured("12")
        self.assertEqual(self.tshark(path, "-Y", "tav", decode=f"tls.port=={PORT},tav"), "")


class Page(Case):
    """What docs/tool/wireshark.md shows is what tshark shows."""

    def test_what_the_page_shows_is_shown(self) -> None:
        page = (PROJECT / "docs" / "tool" / "wireshark.md").read_text()
        block = re.search(r"```text\n(\$ tshark .*?)```", page, re.DOTALL)
        assert block is not None
        blocks = re.findall(r"^\$ (tshark [^\n]*)\n(.*?)(?=^\$ |\Z)", block.group(1), re.DOTALL | re.MULTILINE)
        self.assertEqual(len(blocks), 2)
        stream = Stream(Capture(), 40000)
        stream.send(0, HELLO)
        stream.send(1, mobile(bytes.fromhex("FF0128 02F1026869 FF0129"), 0x1F02))
        stream.send(1, bytes(4))
        stream.capture.write(self.folder / "chat.pcap")
        for file in (CHAT, DISSECTOR):
            shutil.copy(file, self.folder)
        for command, shown in blocks:
            with self.subTest(command=command):
                ran = subprocess.run(
                    ["bash", "-c", command], cwd=self.folder, capture_output=True, text=True, timeout=60,
                    env={**os.environ, "HOME": str(self.folder), "TZ": "UTC", "LC_ALL": "C.UTF-8"},
                )
                self.assertEqual(*[[line.rstrip() for line in text.strip().split("\n")] for text in (ran.stdout, shown)])

    def test_the_way_to_a_capture_has_options_that_there_are(self) -> None:
        """To capture takes rights that tests lack; what is read and sent is tried without a network."""
        page = (PROJECT / "docs" / "tool" / "wireshark.md").read_text()
        request = re.search(r"^\$ tav (request 127\.0\.0\.1:7443 .*)$", page, re.MULTILINE)
        read = re.search(r"^\$ (tshark .* -r chat\.pcapng .*)$", page, re.MULTILINE)
        assert request is not None and read is not None
        (self.folder / "talk.pml").write_text(
            "Say:object(__class__(chat.Say) __code__(2001) [1]room:string() [2]text:string())\n"
            "Said:object(__class__(chat.Said) __code__(2002) [1]room:string())\n"
        )
        (self.folder / "gateway-certificates").mkdir()
        authority = subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=a",
             "-keyout", "key.pem", "-out", "gateway-certificates/ca.pem"], cwd=self.folder, capture_output=True, timeout=60,
        )  # fmt: skip
        self.assertEqual(authority.returncode, 0)
        sent = subprocess.run(
            ["bash", "-c", f'"$TAV_TOOL" {request.group(1)}'.replace(":7443", ":1")],
            cwd=self.folder, capture_output=True, text=True, timeout=60, env=dict(os.environ),
        )  # fmt: skip
        # 3: all that the command line says was understood, and nobody listens there.
        self.assertEqual(sent.returncode, 3, sent.stderr)
        shutil.copy(DISSECTOR, self.folder)
        (self.folder / "keys.log").touch()
        captured_streams([HELLO]).write(self.folder / "chat.pcapng")
        ran = subprocess.run(
            ["bash", "-c", read.group(1) + f" -d tcp.port=={PORT},tav"], cwd=self.folder, capture_output=True, text=True,
            timeout=60, env={**os.environ, "HOME": str(self.folder), "LC_ALL": "C.UTF-8"},
        )  # fmt: skip
        self.assertEqual(ran.returncode, 0, ran.stderr)


if __name__ == "__main__":
    unittest.main()
