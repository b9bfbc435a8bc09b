"""Checks of bench/run's parsing, selection, table and chart, without running
any benchmark."""

import json
import os
import sys
import tempfile
import types
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
RUN = os.path.join(HERE, "..", "..", "bench", "run")


def load_run():
    # bench/run has no .py suffix, so it is compiled and run as a module here.
    module = types.ModuleType("bench_run")
    module.__file__ = RUN
    with open(RUN, encoding="utf-8") as source:
        exec(compile(source.read(), RUN, "exec"), module.__dict__)
    return module


run = load_run()


def bench_line(**fields):
    return "BENCH " + json.dumps(fields)


class ParseBenchLinesTest(unittest.TestCase):
    def test_keeps_only_figure_lines_among_human_output(self):
        text = "\n".join([
            "download 50 MiB: SDK 0.148 s, curl -o 0.065 s",
            bench_line(figure="download", sdk=0.148, baseline=0.065, unit="s",
                       target="ratio <= 1.2", ratio=2.27, met=False),
            "  BENCH indented lines are human output",
            bench_line(figure="resume", sdk=0, baseline=None, unit="bytes", target="= 0 bytes",
                       ratio=None, limit=0, met=True),
        ])
        figures = run.parse_bench_lines("download", text)
        self.assertEqual([f["figure"] for f in figures], ["download", "resume"])
        self.assertEqual(figures[0]["benchmark"], "download")
        self.assertEqual(figures[0]["ratio"], 2.27)
        self.assertIs(figures[0]["met"], False)
        self.assertIsNone(figures[1]["baseline"])
        self.assertEqual(figures[1]["limit"], 0)

    def test_missing_fields_become_empty_and_broken_lines_are_skipped(self):
        text = "\n".join([
            "BENCH {not json",
            "BENCH [1, 2]",
            bench_line(sdk=1.0),
            bench_line(figure="bare", sdk=3.5),
        ])
        stderr, sys.stderr = sys.stderr, open(os.devnull, "w")
        try:
            figures = run.parse_bench_lines("x", text)
        finally:
            sys.stderr.close()
            sys.stderr = stderr
        self.assertEqual(len(figures), 1)
        self.assertEqual(figures[0]["figure"], "bare")
        self.assertIsNone(figures[0]["baseline"])
        self.assertIsNone(figures[0]["met"])
        self.assertEqual(figures[0]["target"], "")


class SelectTest(unittest.TestCase):
    def test_no_names_runs_everything(self):
        self.assertEqual(run.select(None), run.BENCHES)

    def test_repeated_and_comma_separated_names_keep_the_report_order(self):
        chosen = run.select(["playback,facade", " cache "])
        self.assertEqual([b.name for b in chosen], ["facade", "cache", "playback"])

    def test_unknown_name_is_refused(self):
        with self.assertRaises(SystemExit):
            run.select(["facade,nosuch"])


class ReportTest(unittest.TestCase):
    FIGURES = [
        {"benchmark": "events", "figure": "save", "sdk": 412.5, "baseline": 380.0, "unit": "us",
         "ratio": 1.0855, "target": "ratio <= 1.2", "limit": None, "met": True},
        {"benchmark": "facade", "figure": "setAppUserId p99", "sdk": 27147.4, "baseline": 13.1,
         "unit": "us", "ratio": 2073.1, "target": "p99 < 100 us", "limit": 100.0, "met": False},
        {"benchmark": "download", "figure": "resume bytes", "sdk": 0, "baseline": None,
         "unit": "bytes", "ratio": None, "target": "stated", "limit": None, "met": None},
    ]

    def test_ratio_bound_reads_ratio_targets_only(self):
        self.assertEqual(run.ratio_bound("ratio <= 1.2"), 1.2)
        self.assertEqual(run.ratio_bound("ratio < 0.1"), 0.1)
        self.assertIsNone(run.ratio_bound("p99 < 100 us"))
        self.assertIsNone(run.ratio_bound(""))

    def test_table_has_a_row_per_figure_with_its_verdict(self):
        lines = run.table(self.FIGURES).splitlines()
        self.assertEqual(len(lines), 2 + len(self.FIGURES))
        self.assertTrue(lines[0].startswith("benchmark"))
        self.assertTrue(lines[2].endswith("met"))
        self.assertTrue(lines[3].endswith("MISSED"))
        # A figure with neither baseline nor pass mark shows dashes, not "None".
        self.assertNotIn("None", lines[4])
        self.assertTrue(lines[4].endswith("-"))

    def test_chart_draws_figures_with_and_without_baseline(self):
        try:
            import matplotlib  # noqa: F401
        except ImportError:
            self.skipTest("python3-matplotlib is not installed")
        with tempfile.TemporaryDirectory() as out:
            path = os.path.join(out, "report.png")
            self.assertTrue(run.chart(self.FIGURES, path))
            with open(path, "rb") as png:
                self.assertEqual(png.read(8), b"\x89PNG\r\n\x1a\n")


if __name__ == "__main__":
    unittest.main()
