"""The web server on the loopback and the network link in front of it."""

import pathlib
import subprocess
import sys

LOOPBACK_SERVER = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "loopback-server"
SKETCH_SIZE = 30000  # bytes


def sketch_name(number):
    return f"Sketch{number}__1.ino.with_bootloader.standard.hex"


class Server:
    """Answers requests for any address, as a proxy does."""

    def __init__(self, scratch):
        self.folder = scratch / "www" / "vt_updater"
        self.folder.mkdir(parents=True)
        self.process = subprocess.Popen([LOOPBACK_SERVER, scratch], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().strip()
        if not self.address:
            sys.exit("benchmarks: the web server does not start")
        self.port = int(self.address.rpartition(":")[2])

    def publish(self, count, index_only=False):
        """Publishes an index of that many sketches, and one file as large as all of them together."""
        for old in self.folder.iterdir():
            old.unlink()
        (self.folder / "file_list.txt").write_text("\n".join(map(sketch_name, range(count))))
        if index_only:
            return
        for number in range(count):
            line = f":{number:08}\n"
            (self.folder / sketch_name(number)).write_text(
                (line * (SKETCH_SIZE // len(line) + 1))[:SKETCH_SIZE])
        (self.folder / "all").write_bytes(b":" * (SKETCH_SIZE * count))

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class Link:
    """The link between a server and its clients: megabits a second, and the round trip in ms."""

    def __init__(self, program, server, rate, round_trip):
        self.name = f"{rate} Mbit/s, {round_trip} ms"
        self.rate = rate
        self.round_trip = round_trip
        self.process = subprocess.Popen([program, str(server.port), str(rate), str(round_trip)],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.address = f"http://127.0.0.1:{int(self.process.stdout.readline())}"
        self.folder = server.folder

    def least(self, size):
        """The least time in ms for an index and then one file of this size: two handshakes, two
        requests, and the packets with their headers."""
        return 4 * self.round_trip + size * 8 * (1460 + 78) / 1460 / self.rate / 1e3

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()
