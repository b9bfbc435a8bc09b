"""Checks of bench/run's parsing, selection, verdicts, table and chart; the
benchmarks are stood in for by small scripts."""

import json
import os
import stat
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
        self.assertIsNone(figures[0]["invalid"])


class SelectTest(unittest.TestCase):
    def test_no_names_runs_everything(self):
        self.assertEqual(run.select(None), run.BENCHES)

    def test_repeated_and_comma_separated_names_keep_the_report_order(self):
        chosen = run.select(["playback,facade", " cache "])
        self.assertEqual([b.name for b in chosen], ["facade", "cache", "playback"])

    def test_unknown_name_is_refused(self):
        with self.assertRaises(SystemExit):
            run.select(["facade,nosuch"])


def figure(**fields):
    base = {"benchmark": "b", "figure": "f", "sdk": 1.0, "baseline": None, "unit": "",
            "ratio": None, "target": "", "limit": None, "met": None, "invalid": None}
    base.update(fields)
    return base


class JudgeTest(unittest.TestCase):
    def test_verdict_comes_from_the_numbers_and_the_target(self):
        within = run.judge(figure(sdk=1.1, baseline=1.0, unit="s", ratio=1.1,
                                  target="ratio <= 1.2"), wall=10)
        self.assertEqual(within["verdict"], "met")
        beyond = run.judge(figure(sdk=1.3, baseline=1.0, unit="s", ratio=1.3,
                                  target="ratio <= 1.2"), wall=10)
        self.assertEqual(beyond["verdict"], "MISSED")
        self.assertIs(beyond["met"], False)
        limit = run.judge(figure(sdk=120, unit="us", target="p99 < 100 us", limit=100), wall=10)
        self.assertEqual(limit["verdict"], "MISSED")
        self.assertEqual(run.judge(figure(sdk=0, unit="bytes", limit=0))["verdict"], "met")
        self.assertEqual(run.judge(figure(sdk=3, unit="bytes", target="stated"))["verdict"], "no target")

    def test_figures_that_cannot_be_right_are_invalid_never_met_or_missed(self):
        cases = {
            # The machine's uptime printed as a first frame, by a benchmark that ran 20 s.
            "longer than the benchmark ran": figure(sdk=2556212.6, baseline=94.0, unit="ms",
                                                    ratio=27193.7, target="ratio <= 1.2"),
            "not positive": figure(sdk=-5.0, baseline=94.0, unit="ms", ratio=-5 / 94,
                                   target="ratio <= 1.2"),
            "baseline time 0": figure(sdk=5.0, baseline=0.0, unit="ms", target="ratio <= 1.2"),
            "ratio from elsewhere": figure(sdk=654.0, baseline=398.0, unit="us", ratio=0.9,
                                           target="ratio <= 1.2"),
            "ratio without baseline": figure(sdk=1.0, unit="s", target="ratio <= 1.2"),
            "verdict disagrees": figure(sdk=2.0, baseline=1.0, unit="s", ratio=2.0,
                                        target="ratio <= 1.2", met=True),
            "flagged by the benchmark": figure(sdk=1.0, baseline=1.0, unit="s", ratio=1.0,
                                               target="ratio <= 1.2", met=True,
                                               invalid="the moments are out of order"),
            "no number": figure(sdk=None, unit="s"),
        }
        for name, f in cases.items():
            with self.subTest(name):
                judged = run.judge(f, wall=20.0)
                self.assertEqual(judged["verdict"], "invalid")
                self.assertTrue(judged["invalid"])
        self.assertIn("out of order", cases["flagged by the benchmark"]["invalid"])

    def test_quantities_other_than_times_need_not_be_below_the_wall_time(self):
        judged = run.judge(figure(sdk=3e6, unit="bytes", limit=4e6), wall=1.0)
        self.assertEqual(judged["verdict"], "met")


def fake_benchmark(build_dir, target, lines, status):
    """A script standing in for a benchmark binary: prints `lines`, exits `status`."""
    path = os.path.join(build_dir, "bench", target)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as script:
        script.write("#!/bin/sh\ncat <<'EOF'\n" + "\n".join(lines) + f"\nEOF\nexit {status}\n")
    os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR)


class RunBenchTest(unittest.TestCase):
    GOOD = bench_line(figure="good", sdk=1.0, baseline=1.0, unit="ms", ratio=1.0,
                      target="ratio <= 1.2", met=True)
    FLAGGED = bench_line(figure="flagged", sdk=1.0, baseline=None, unit="ms", target="ratio <= 1.2",
                         invalid="a ratio target without a baseline measured in this run")

    def run_fake(self, lines, status):
        with tempfile.TemporaryDirectory() as build:
            fake_benchmark(build, "fake_target", lines, status)
            saved, run.BUILD_DIR = run.BUILD_DIR, build
            stdout, sys.stdout = sys.stdout, open(os.devnull, "w")
            try:
                return run.run_bench(run.Bench("fake", "fake_target"), quick=False)
            finally:
                sys.stdout.close()
                sys.stdout = stdout
                run.BUILD_DIR = saved

    def test_a_figure_that_failed_its_own_check_is_invalid_and_the_others_stand(self):
        figures, error = self.run_fake([self.GOOD, self.FLAGGED], run.IMPLAUSIBLE_EXIT)
        self.assertEqual([f["verdict"] for f in figures], ["met", "invalid"])
        self.assertEqual(error, "printed an invalid figure")

    def test_every_figure_of_a_benchmark_that_failed_is_invalid(self):
        figures, error = self.run_fake([self.GOOD], 134)
        self.assertEqual([f["verdict"] for f in figures], ["invalid"])
        self.assertIn("exit status 134", figures[0]["invalid"])
        self.assertEqual(error, "exit status 134")

    def test_a_time_longer_than_the_benchmark_ran_is_invalid(self):
        uptime = bench_line(figure="first frame", sdk=2556212.6, baseline=94.0, unit="ms",
                            ratio=2556212.6 / 94.0, target="ratio <= 1.2", met=False)
        figures, error = self.run_fake([self.GOOD, uptime], 0)
        self.assertIsNone(error)
        self.assertEqual([f["verdict"] for f in figures], ["met", "invalid"])
        self.assertIn("longer than the benchmark ran", figures[1]["invalid"])


class InterpreterTest(unittest.TestCase):
    def test_moves_to_debians_interpreter_only_when_that_helps(self):
        system = "/bin/sh"  # stands for /usr/bin/python3: any executable will do
        other = "/root/.pyenv/versions/3.11.7/bin/python3"
        choose = run.interpreter_for_chart
        self.assertEqual(choose(other, has_matplotlib=False, system_python=system, environ={}), system)
        self.assertIsNone(choose(other, has_matplotlib=True, system_python=system, environ={}))
        self.assertIsNone(choose(system, has_matplotlib=False, system_python=system, environ={}))
        self.assertIsNone(choose(other, has_matplotlib=False, system_python=system,
                                 environ={run.REEXEC_MARK: "1"}))
        self.assertIsNone(choose(other, has_matplotlib=False, system_python="/nonexistent/python3",
                                 environ={}))


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
        self.assertTrue(lines[4].endswith("no target"))

    def test_invalid_rows_say_why_under_the_table(self):
        broken = dict(self.FIGURES[0], sdk=-1.0, ratio=-1 / 380.0)
        lines = run.table([broken]).splitlines()
        self.assertTrue(lines[2].endswith("invalid"))
        self.assertIn("not positive", lines[3])

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
