#!/usr/bin/python3
"""Ctrl-C in the middle of a long translation in an interactive kora.

usage: ctrl_c.py KORA SMALL_V7_FILE SEED_FILE

Runs kora on a pseudo-terminal (so its progress meter draws and Ctrl-C
reaches it as a terminal's interrupt character does) and checks:

- import: Ctrl-C once the meter shows says "Translation cancelled." and
  leaves the drawing as it was (the drawing saved afterwards holds only
  what was drawn before the import);
- export: Ctrl-C during -DGNEXPORT of a big drawing writes no DGN: the
  file asked for stays as the write check before the export left it (empty),
  and no half-written temporary stays beside it.

The big DGN file is made from the small one by repeating its last line
element; the big drawing is that file imported."""
import os
import pty
import select
import sys
import tempfile
import time

import ezdxf

ELEMENTS = 1_000_000


def big_design(small, out):
    """The small V7 file with its last element (a line) repeated."""
    data = open(small, "rb").read()
    pos, last = 0, None
    while data[pos:pos + 2] != b"\xff\xff":
        last = pos
        pos += 4 + 2 * int.from_bytes(data[pos + 2:pos + 4], "little")
    with open(out, "wb") as f:
        f.write(data[:pos] + data[last:pos] * ELEMENTS + data[pos:])


class Kora:
    def __init__(self, executable, folder, home):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.environ["KORA_USER_ROOT"] = home
            os.environ["TERM"] = "dumb"
            os.execv(executable, [executable])
        self.output = b""
        self.seen = 0  # output before this has been matched already

    def wait_for(self, text, timeout=60):
        """Waits until the output after the last match shows text."""
        deadline = time.monotonic() + timeout
        while text.encode() not in self.output[self.seen:]:
            left = deadline - time.monotonic()
            if left <= 0:
                sys.exit("timed out waiting for %r; output:\n%s" % (text, self.output.decode(errors="replace")))
            if select.select([self.fd], [], [], left)[0]:
                try:
                    self.output += os.read(self.fd, 65536)
                except OSError:
                    sys.exit("kora ended before %r; output:\n%s" % (text, self.output.decode(errors="replace")))
        self.seen = self.output.index(text.encode(), self.seen) + len(text)

    def type(self, *lines):
        """Types each line and Enter (at the terminal a space does not end a reply)."""
        for line in lines:
            os.write(self.fd, (line + "\r").encode())

    def interrupt(self):
        os.write(self.fd, b"\x03")

    def quit(self):
        self.type("QUIT")
        self.wait_for("\n", timeout=5)
        _, status = os.waitpid(self.pid, 0)
        return status


def expect(condition, message, kora):
    if not condition:
        sys.exit("FAIL: %s\noutput:\n%s" % (message, kora.output.decode(errors="replace")))


def main():
    executable, small, seed = (os.path.abspath(a) for a in sys.argv[1:4])
    with tempfile.TemporaryDirectory() as folder:
        home = os.path.join(folder, "home")
        design = os.path.join(folder, "big.dgn")
        big_design(small, design)

        # Import into the current drawing, which holds one line.
        kora = Kora(executable, folder, home)
        kora.wait_for("Command: ")
        kora.type("SETVAR", "FILEDIA", "0", "SETVAR", "DGNIMPORTMODE", "1", "LINE", "0,0", "10,10", "")
        kora.type("-DGNIMPORT", design, "", "", "")
        kora.wait_for("Importing DGN file")
        kora.interrupt()
        kora.wait_for("Translation cancelled.")
        kora.type("SAVEAS", "before.dxf")
        kora.wait_for("Saved")
        kora.quit()
        saved = os.path.join(folder, "before.dxf")
        expect(os.path.exists(saved), "SAVEAS after the cancel wrote nothing", kora)
        entities = list(ezdxf.readfile(saved).modelspace())
        expect([e.dxftype() for e in entities] == ["LINE"], "the cancelled import left %d entities" % len(entities), kora)
        print("import: cancelled, drawing unchanged")

        # Export the big drawing: import it whole, then cancel the export.
        kora = Kora(executable, folder, home)
        kora.wait_for("Command: ")
        kora.type("SETVAR", "FILEDIA", "0", "SETVAR", "DGNIMPORTMODE", "1", "-DGNIMPORT", design, "", "", "")
        kora.wait_for("Translation successful.", timeout=120)
        before = set(os.listdir(folder))
        kora.type("-DGNEXPORT", "V7", os.path.join(folder, "out.dgn"), "", "", seed)
        kora.wait_for("Exporting")
        kora.interrupt()
        kora.wait_for("Translation cancelled.")
        kora.quit()
        # The write check before the export leaves the named file empty; the
        # cancel must leave it so, and no temporary file beside it.
        left = sorted(set(os.listdir(folder)) - before)
        expect(left == ["out.dgn"], "the cancelled export left %s" % left, kora)
        size = os.path.getsize(os.path.join(folder, "out.dgn"))
        expect(size == 0, "the cancelled export left %d bytes in out.dgn" % size, kora)
        print("export: cancelled, nothing written")


main()
