#!/usr/bin/env python3
"""The layering check on small made-up trees: it must name what goes up."""

import io
import os
import sys
import tempfile
import unittest
from contextlib import redirect_stdout

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "scripts"))
import layers  # noqa: E402

PASS = (0, "layers: every include goes down the floors\n")


class LayersTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.src = self.dir.name

    def write(self, files, quotes='""'):
        """Writes each file of {path: [included headers]}."""
        for path, includes in files.items():
            full = os.path.join(self.src, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w") as out:
                out.write("".join(f"#include {quotes[0]}{i}{quotes[1]}\n" for i in includes))

    def check(self):
        with redirect_stdout(io.StringIO()) as out:
            status = layers.main(["--check", self.src])
        return status, out.getvalue()

    def test_downward_includes_pass_and_upward_or_sealed_ones_are_named_with_their_line(self):
        self.write({"util/Log.h": [], "sdk/Context.h": [], "platform/Files.h": [],
                    "sdk/Context.cpp": ["sdk/Context.h", "util/Log.h", "zivora/Public.h"],
                    "top/LinuxWiring.cpp": ["platform/linux/Posix.h", "sdk/Context.h"],
                    "platform/linux/Posix.h": ["platform/Files.h"]})
        self.assertEqual(self.check(), PASS)
        self.write({"util/Log.cpp": ["util/Log.h", "sdk/Context.h"],
                    "sdk/Context.cpp": ["platform/linux/Posix.h"],
                    "top/Instance.cpp": ["platform/linux/Posix.h"],
                    "analytics/Facade.cpp": ["events/Sender.h"], "events/Sender.h": []})
        status, out = self.check()
        self.assertEqual(status, 1)
        for line in ("util/Log.cpp:2: util -> sdk: includes upwards",
                     "sdk/Context.cpp:1: sdk -> platform/linux: only top/LinuxWiring.cpp may",
                     "top/Instance.cpp:1: top -> platform/linux: only top/LinuxWiring.cpp may",
                     # Subsystems are ordered among themselves too.
                     "analytics/Facade.cpp:1: analytics -> events: includes upwards"):
            self.assertIn(line, out)

    def test_a_cycle_through_unknown_folders_is_reported(self):
        self.write({"extra/A.h": ["spare/B.h"], "spare/B.h": ["extra/A.h"]})
        status, out = self.check()
        self.assertEqual(status, 1)
        self.assertIn("folder not on any floor", out)
        self.assertIn("folders include each other: extra spare", out)

    def test_system_libraries_only_in_the_linux_implementations(self):
        self.write({"platform/linux/CurlHttp.cpp": ["curl/curl.h", "openssl/evp.h"],
                    "platform/linux/SdlWindow.cpp": ["SDL.h", "X11/Xlib.h"],
                    "ui/Canvas.cpp": ["cairo.h", "pango/pangocairo.h", "string"]}, "<>")
        self.assertEqual(self.check(), PASS)
        self.write({"ui/Image.cpp": ["cairo.h", "SDL_image.h"], "util/Hash.cpp": ["openssl/rand.h"],
                    "events/Send.cpp": ["curl/curl.h"], "sdk/Screen.h": ["X11/Xlib.h"],
                    "ui/WindowPresenter.h": ["SDL.h"]}, "<>")
        status, out = self.check()
        self.assertEqual(status, 1)
        for line in ("ui/Image.cpp:2: #include <SDL_image.h>", "util/Hash.cpp:1: #include <openssl",
                     "events/Send.cpp:1: #include <curl", "sdk/Screen.h:1: #include <X11",
                     "ui/WindowPresenter.h:1: #include <SDL.h>"):
            self.assertIn(line, out)
        self.assertEqual(out.count("system library outside platform/linux"), 5)

    def test_table_counts_includes_between_folders_only(self):
        self.write({"sdk/Context.cpp": ["sdk/Context.h", "util/Log.h", "util/Log.h", "util/Hash.h"],
                    "sdk/Context.h": [], "util/Log.h": [], "util/Hash.h": []})
        self.assertEqual(dict(layers.count(self.src)), {("sdk", "util"): 3})


if __name__ == "__main__":
    unittest.main()
