"""Checks of bench/run's parsing, selection, verdicts, table and chart; the
benchmarks are stood in for by small scripts."""

import contextlib
import io
import json
import os
import stat
import tempfile
import types
import unittest

RUN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "bench", "run")
# bench/run has no .py suffix, so it is compiled and run as a module here.
run = types.ModuleType("bench_run")
run.__file__ = RUN
with open(RUN, encoding="utf-8") as source:
    exec(compile(source.read(), RUN, "exec"), run.__dict__)


def bench_line(**fields):
    return "BENCH " + json.dumps(fields)


def figure(**fields):
    return {"benchmark": "b", "figure": "f", "sdk": 1.0, "baseline": None, "unit": "", "ratio": None,
            "target": "", "limit": None, "met": None, "invalid": None, **fields}


def against_baseline(sdk, baseline, ratio, unit="ms", **fields):
    """A figure with a ratio target, the commonest kind."""
    return figure(sdk=sdk, baseline=baseline, ratio=ratio, unit=unit, target="ratio <= 1.2",
                  **fields)


def quietly(call, *args, **kwargs):
    with contextlib.redirect_stdout(io.StringIO()), contextlib.redirect_stderr(io.StringIO()):
        return call(*args, **kwargs)


class BenchRunTest(unittest.TestCase):
    def test_keeps_only_figure_lines_and_fills_missing_fields(self):
        text = "\n".join([
            "download 50 MiB: SDK 0.148 s, curl -o 0.065 s",
            bench_line(figure="download", sdk=0.148, baseline=0.065, unit="s",
                       target="ratio <= 1.2", ratio=2.27, met=False),
            "  BENCH indented lines are human output", "BENCH {not json", "BENCH [1, 2]",
            bench_line(sdk=1.0), bench_line(figure="bare", sdk=3.5),
        ])
        figures = quietly(run.parse_bench_lines, "download", text)
        self.assertEqual([f["figure"] for f in figures], ["download", "bare"])
        self.assertEqual(figures[0]["benchmark"], "download")
        self.assertEqual(figures[0]["ratio"], 2.27)
        self.assertIs(figures[0]["met"], False)
        self.assertEqual([figures[1][k] for k in ("baseline", "met", "target", "invalid")],
                         [None, None, "", None])

    def test_selection_keeps_the_report_order_and_refuses_unknown_names(self):
        self.assertEqual(run.select(None), run.BENCHES)
        chosen = run.select(["playback,facade", " cache "])
        self.assertEqual([b.name for b in chosen], ["facade", "cache", "playback"])
        with self.assertRaises(SystemExit):
            run.select(["facade,nosuch"])

    def test_verdict_comes_from_the_numbers_and_the_target(self):
        cases = [
            ("met", against_baseline(1.1, 1.0, 1.1)),
            ("MISSED", against_baseline(1.3, 1.0, 1.3)),
            ("MISSED", figure(sdk=120, unit="us", target="p99 < 100 us", limit=100)),
            ("met", figure(sdk=0, unit="bytes", limit=0)),
            ("no target", figure(sdk=3, unit="bytes", target="stated")),
            # Quantities other than times need not be below the wall time.
            ("met", figure(sdk=3e6, unit="bytes", limit=4e6)),
        ]
        for verdict, f in cases:
            with self.subTest(f):
                self.assertEqual(run.judge(f, wall=10)["verdict"], verdict)
        self.assertIs(cases[1][1]["met"], False)

    def test_figures_that_cannot_be_right_are_invalid_never_met_or_missed(self):
        cases = {
            # The machine's uptime printed as a first frame, by a benchmark that ran 20 s.
            "longer than the benchmark ran": against_baseline(2556212.6, 94.0, 27193.7),
            "not positive": against_baseline(-5.0, 94.0, -5 / 94),
            "baseline time 0": against_baseline(5.0, 0.0, None),
            "ratio from elsewhere": against_baseline(654.0, 398.0, 0.9, unit="us"),
            "ratio without baseline": against_baseline(1.0, None, None),
            "verdict disagrees": against_baseline(2.0, 1.0, 2.0, met=True),
            "flagged by the benchmark": against_baseline(1.0, 1.0, 1.0, met=True,
                                                         invalid="the moments are out of order"),
            "no number": figure(sdk=None, unit="s"),
        }
        for name, f in cases.items():
            with self.subTest(name):
                judged = run.judge(f, wall=20.0)
                self.assertEqual(judged["verdict"], "invalid")
                self.assertTrue(judged["invalid"])
        self.assertIn("out of order", cases["flagged by the benchmark"]["invalid"])

    def test_a_benchmark_run_invalidates_what_failed_and_keeps_the_rest(self):
        good = bench_line(figure="good", sdk=1.0, baseline=1.0, unit="ms", ratio=1.0,
                          target="ratio <= 1.2", met=True)
        flagged = bench_line(figure="flagged", sdk=1.0, unit="ms", target="ratio <= 1.2",
                             invalid="a ratio target without a baseline measured in this run")
        uptime = bench_line(figure="first frame", sdk=2556212.6, baseline=94.0, unit="ms",
                            ratio=2556212.6 / 94.0, target="ratio <= 1.2", met=False)
        cases = [  # printed lines, exit status, verdicts, error, why the last is invalid
            ([good, flagged], run.IMPLAUSIBLE_EXIT, ["met", "invalid"], "printed an invalid figure",
             "without a baseline"),
            ([good], 134, ["invalid"], "exit status 134", "exit status 134"),
            ([good, uptime], 0, ["met", "invalid"], None, "longer than the benchmark ran"),
        ]
        for lines, status, verdicts, error, why in cases:
            with self.subTest(status), tempfile.TemporaryDirectory() as build:
                # A script standing in for the benchmark binary.
                path = os.path.join(build, "bench", "fake_target")
                os.makedirs(os.path.dirname(path))
                with open(path, "w") as script:
                    script.write("#!/bin/sh\ncat <<'EOF'\n" + "\n".join(lines) +
                                 f"\nEOF\nexit {status}\n")
                os.chmod(path, os.stat(path).st_mode | stat.S_IXUSR)
                saved, run.BUILD_DIR = run.BUILD_DIR, build
                try:
                    figures, got = quietly(run.run_bench, run.Bench("fake", "fake_target"), False)
                finally:
                    run.BUILD_DIR = saved
                self.assertEqual([f["verdict"] for f in figures], verdicts)
                self.assertEqual(got, error)
                self.assertIn(why, figures[-1]["invalid"])

    def test_moves_to_debians_interpreter_only_when_that_helps(self):
        system = "/bin/sh"  # stands for /usr/bin/python3: any executable will do
        other = "/root/.pyenv/versions/3.11.7/bin/python3"
        choose = run.interpreter_for_chart
        self.assertEqual(choose(other, has_matplotlib=False, system_python=system, environ={}),
                         system)
        for executable, has, python, environ in [
                (other, True, system, {}), (system, False, system, {}),
                (other, False, system, {run.REEXEC_MARK: "1"}),
                (other, False, "/nonexistent/python3", {})]:
            self.assertIsNone(choose(executable, has_matplotlib=has, system_python=python,
                                     environ=environ))

    def test_table_chart_and_ratio_targets(self):
        figures = [
            figure(benchmark="events", figure="save", sdk=412.5, baseline=380.0, unit="us",
                   ratio=1.0855, target="ratio <= 1.2", met=True),
            figure(benchmark="facade", figure="setAppUserId p99", sdk=27147.4, baseline=13.1,
                   unit="us", ratio=2073.1, target="p99 < 100 us", limit=100.0, met=False),
            figure(benchmark="download", figure="resume bytes", sdk=0, unit="bytes",
                   target="stated"),
            figure(sdk=-1.0, baseline=380.0, unit="us", ratio=-1 / 380.0, target="ratio <= 1.2"),
        ]
        lines = run.table(figures).splitlines()
        self.assertTrue(lines[0].startswith("benchmark"))
        self.assertEqual([line.split()[-1] for line in lines[2:6]],
                         ["met", "MISSED", "target", "invalid"])
        # A figure with neither baseline nor pass mark shows dashes, not "None".
        self.assertNotIn("None", lines[4])
        # Invalid rows say why under the table.
        self.assertIn("not positive", lines[6])
        self.assertEqual([run.ratio_bound(t) for t in ("ratio <= 1.2", "ratio < 0.1", "p99 < 100 us", "")],
                         [1.2, 0.1, None, None])
        try:
            import matplotlib  # noqa: F401
        except ImportError:
            self.skipTest("python3-matplotlib is not installed")
        with tempfile.TemporaryDirectory() as out:
            self.assertTrue(run.chart(figures[:3], os.path.join(out, "report.png")))
            with open(os.path.join(out, "report.png"), "rb") as png:
                self.assertEqual(png.read(8), b"\x89PNG\r\n\x1a\n")


if __name__ == "__main__":
    unittest.main()
