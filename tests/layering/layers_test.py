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


class LayersTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.src = self.dir.name

    def tearDown(self):
        self.dir.cleanup()

    def write(self, path, *includes):
        full = os.path.join(self.src, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w") as out:
            out.write("".join(f'#include "{include}"\n' for include in includes))

    def check(self):
        with redirect_stdout(io.StringIO()) as out:
            status = layers.main(["--check", self.src])
        return status, out.getvalue()

    def test_downward_includes_pass(self):
        self.write("util/Log.h")
        self.write("sdk/Context.cpp", "sdk/Context.h", "util/Log.h", "zivora/Public.h")
        self.write("sdk/Context.h")
        self.write("top/LinuxWiring.cpp", "platform/linux/Posix.h", "sdk/Context.h")
        self.write("platform/linux/Posix.h", "platform/Files.h")
        self.write("platform/Files.h")
        self.assertEqual(self.check(), (0, "layers: every include goes down the floors\n"))

    def test_upward_and_sealed_includes_are_named_with_their_line(self):
        self.write("util/Log.cpp", "util/Log.h", "sdk/Context.h")
        self.write("util/Log.h")
        self.write("sdk/Context.h")
        self.write("sdk/Context.cpp", "platform/linux/Posix.h")
        self.write("platform/linux/Posix.h")
        self.write("top/Instance.cpp", "platform/linux/Posix.h")
        self.write("analytics/Facade.cpp", "events/Sender.h")
        self.write("events/Sender.h")
        status, out = self.check()
        self.assertEqual(status, 1)
        self.assertIn("util/Log.cpp:2: util -> sdk: includes upwards", out)
        self.assertIn("sdk/Context.cpp:1: sdk -> platform/linux: only top/LinuxWiring.cpp may", out)
        self.assertIn("top/Instance.cpp:1: top -> platform/linux: only top/LinuxWiring.cpp may", out)
        # Subsystems are ordered among themselves too.
        self.assertIn("analytics/Facade.cpp:1: analytics -> events: includes upwards", out)

    def test_a_cycle_through_unknown_folders_is_reported(self):
        self.write("extra/A.h", "spare/B.h")
        self.write("spare/B.h", "extra/A.h")
        status, out = self.check()
        self.assertEqual(status, 1)
        self.assertIn("folder not on any floor", out)
        self.assertIn("folders include each other: extra spare", out)

    def test_system_libraries_only_in_the_linux_implementations(self):
        def write_system(path, *headers):
            full = os.path.join(self.src, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w") as out:
                out.write("".join(f"#include <{header}>\n" for header in headers))

        write_system("platform/linux/CurlHttp.cpp", "curl/curl.h", "openssl/evp.h")
        write_system("platform/linux/SdlWindow.cpp", "SDL.h", "X11/Xlib.h")
        write_system("ui/Canvas.cpp", "cairo.h", "pango/pangocairo.h", "string")
        self.assertEqual(self.check(), (0, "layers: every include goes down the floors\n"))

        write_system("ui/Image.cpp", "cairo.h", "SDL_image.h")
        write_system("util/Hash.cpp", "openssl/rand.h")
        write_system("events/Send.cpp", "curl/curl.h")
        write_system("sdk/Screen.h", "X11/Xlib.h")
        write_system("ui/WindowPresenter.h", "SDL.h")
        status, out = self.check()
        self.assertEqual(status, 1)
        for line in ("ui/Image.cpp:2: #include <SDL_image.h>", "util/Hash.cpp:1: #include <openssl",
                     "events/Send.cpp:1: #include <curl", "sdk/Screen.h:1: #include <X11", "ui/WindowPresenter.h:1: #include <SDL.h>"):
            self.assertIn(line, out)
        self.assertEqual(out.count("system library outside platform/linux"), 5)

    def test_table_counts_includes_between_folders_only(self):
        self.write("sdk/Context.cpp", "sdk/Context.h", "util/Log.h", "util/Log.h", "util/Hash.h")
        self.write("sdk/Context.h")
        self.write("util/Log.h")
        self.write("util/Hash.h")
        self.assertEqual(dict(layers.count(self.src)), {("sdk", "util"): 3})


if __name__ == "__main__":
    unittest.main()
