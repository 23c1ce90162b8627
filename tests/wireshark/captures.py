"""Captures for the tests of the dissector: written as files, by what a program says over a relay or by what a test says."""

from __future__ import annotations

import socket
import struct
import subprocess
import threading
from pathlib import Path
from typing import List, Optional, Tuple

PORT = 7443
_SEGMENT = 1400


def _ip(protocol: int, payload: bytes) -> bytes:
    address = bytes([127, 0, 0, 1])
    head = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), 1, 0, 64, protocol, 0, address, address)
    total = sum(struct.unpack("!10H", head))
    total = (total >> 16) + (total & 0xFFFF)
    total += total >> 16
    return head[:10] + struct.pack("!H", ~total & 0xFFFF) + head[12:] + payload


class Capture:
    """Packets of IP, without a link around them."""

    def __init__(self, cut: Optional[int] = None) -> None:
        self.packets: List[bytes] = []
        # Of each packet no more bytes than these are kept.
        self.cut = cut

    def write(self, path: Path) -> Path:
        with path.open("wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 101))
            for number, packet in enumerate(self.packets):
                kept = packet[: self.cut]
                file.write(struct.pack("<IIII", 1700000000 + number // 1000, number % 1000 * 1000, len(kept), len(packet)))
                file.write(kept)
        return path

    def udp(self, payload: bytes, port: int = PORT) -> None:
        self.packets.append(_ip(17, struct.pack("!HHHH", 40000, port, 8 + len(payload), 0) + payload))


class Stream:
    """A TCP connection in a capture."""

    def __init__(self, capture: Capture, client_port: int, server_port: int = PORT) -> None:
        self.capture = capture
        self.ports = (client_port, server_port)
        self.next = [1, 1]
        self._packet(0, 0x02, b"", -1, 0)
        self._packet(1, 0x12, b"", -1, 1)
        self._packet(0, 0x10, b"", 0, 1)

    def _packet(self, side: int, flags: int, data: bytes, back: int = 0, acknowledged: Optional[int] = None) -> None:
        to = self.next[1 - side] if acknowledged is None else acknowledged
        head = struct.pack(
            "!HHIIBBHHH", self.ports[side], self.ports[1 - side], self.next[side] + back, to, 5 << 4, flags, 65535, 0, 0
        )
        self.capture.packets.append(_ip(6, head + data))

    def send(self, side: int, data: bytes, segment: int = _SEGMENT) -> None:
        """Side 0 is the client, side 1 the server."""
        for at in range(0, len(data), segment):
            part = data[at : at + segment]
            self._packet(side, 0x18, part)
            self.next[side] += len(part)

    def end(self) -> None:
        for side in (0, 1):
            self._packet(side, 0x11, b"")
            self.next[side] += 1


def captured_streams(payloads: List[bytes], segment: int = _SEGMENT) -> Capture:
    """Each payload is what the client of a connection of its own says."""
    capture = Capture()
    for number, payload in enumerate(payloads):
        stream = Stream(capture, 20000 + number)
        stream.send(0, payload, segment)
        stream.end()
    return capture


class Relay:
    """Carries one connection to a server, and remembers who said what in which order."""

    def __init__(self, server: Tuple[str, int]) -> None:
        self._server = server
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._lock = threading.Lock()
        self.port: int = self._listener.getsockname()[1]
        self.said: List[Tuple[int, bytes]] = []
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self) -> None:
        self._listener.settimeout(60)
        client, _ = self._listener.accept()
        self._listener.close()
        with client, socket.create_connection(self._server, timeout=10) as server:
            client.settimeout(60)
            server.settimeout(60)
            back = threading.Thread(target=self._carry, args=(1, server, client), daemon=True)
            back.start()
            self._carry(0, client, server)
            back.join(60)

    def _carry(self, side: int, source: socket.socket, to: socket.socket) -> None:
        try:
            while data := source.recv(65536):
                with self._lock:
                    self.said.append((side, data))
                to.sendall(data)
            to.shutdown(socket.SHUT_WR)
        except OSError:
            # One side is gone: the other one is told by the end of this relay.
            pass

    def capture(self) -> Capture:
        self._thread.join(60)
        capture = Capture()
        stream = Stream(capture, 40000)
        for side, data in self.said:
            stream.send(side, data)
        stream.end()
        return capture


class Gateway:
    """A tav-gateway of the test's own."""

    def __init__(self, program: str, folder: Path) -> None:
        port_file = folder / "port"
        self.ca = folder / "certificates" / "ca.pem"
        command = [program, "--certificates", str(self.ca.parent), "--port-file", str(port_file), "--ask-affirm", "--until-eof"]
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        assert self._process.stdout is not None
        for line in self._process.stdout:
            if "listening" in line:
                self.port = int(line.split()[-1])
                break
        else:
            raise RuntimeError("the gateway did not start")
        self._reader = threading.Thread(target=self._process.stdout.read, daemon=True)
        self._reader.start()

    def close(self) -> None:
        assert self._process.stdin is not None and self._process.stdout is not None
        self._process.stdin.close()
        self._process.wait(30)
        self._reader.join(30)
        self._process.stdout.close()
