"""What judges the truth walk, without a browser: it sees a wrong answer, takes time right, and tells growth from noise."""

import sys
import time
import unittest
from pathlib import Path
from typing import Optional

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts/lib"))

from desktop.truth.browsers import Shown, _field_text  # noqa: E402
from desktop.truth.growth import Sample, what_grows  # noqa: E402
from desktop.truth.observer import Observer  # noqa: E402
from desktop.truth.pages import Event, WalkPages  # noqa: E402
from desktop.truth.report import summary  # noqa: E402
from desktop.truth.seat import Window  # noqa: E402
from desktop.truth.walk import Step  # noqa: E402


class _Session:
    """Seat, browsers and daemon in one, said by the case."""

    name = "Browser"

    def __init__(self) -> None:
        self.shown: list[Window] = []
        self.answer: Optional[str] = ""

    def windows(self) -> list[Window]:
        return self.shown

    def ask(self, _browser: str) -> Optional[str]:
        return self.answer


class _Browser:
    name = "Browser"
    running = True

    def __init__(self, pid: int, address: Optional[str]) -> None:
        self.pid = pid
        self.address = address

    def look(self, _window: Window) -> Optional[Shown]:
        return None if self.address is None else Shown((self.address,), self.address, "tab", 1)


def _window(pid: int, minimised: bool = False) -> Window:
    return Window(str(pid), pid, "title", not minimised, minimised, False)


class TheObserver(unittest.TestCase):
    def setUp(self) -> None:
        self.session = _Session()
        self.first, self.second = _Browser(1, "a"), _Browser(2, "b")
        self.observer = Observer(self.session, [self.first, self.second], self.session)  # type: ignore[arg-type]
        self.addCleanup(self.observer.close)

    def accepted(self) -> Optional[tuple[str, ...]]:
        self.observer.wait(lambda _: True, 5)
        return self.observer.scene.accepted

    def test_answer_that_stays_behind_is_wrong_until_it_has_caught_up(self) -> None:
        self.session.shown, self.session.answer = [_window(1)], "a"
        self.assertTrue(self.observer.wait(lambda _: self.observer.right_since is not None, 5))
        self.first.address = "c"
        self.assertTrue(self.observer.wait(lambda scene: scene.accepted == ("c",), 5))
        self.assertIsNone(self.observer.right_since)
        time.sleep(0.05)
        self.session.answer = "c"
        self.assertTrue(self.observer.wait(lambda _: self.observer.right_since is not None, 5))
        self.assertGreaterEqual(self.observer.right_since - self.observer.truth_since, 0.05)

    def test_front_most_process_decides(self) -> None:
        self.session.shown = [_window(7), _window(2), _window(1)]
        self.assertEqual(self.accepted(), ("b",))

    def test_nothing_but_minimised_windows_is_an_empty_address(self) -> None:
        self.session.shown = [_window(1, minimised=True)]
        self.assertEqual(self.accepted(), ("",))

    def test_what_the_browser_does_not_say_is_not_made_up(self) -> None:
        self.session.shown, self.session.answer = [_window(1)], ""
        self.first.address = None
        self.assertIsNone(self.accepted())

    def test_agent_that_gives_no_answer_is_not_right(self) -> None:
        self.session.answer = None
        self.assertEqual(self.accepted(), ("",))
        self.assertIsNone(self.observer.right_since)


class TheTruth(unittest.TestCase):
    def test_chromium_leaves_out_the_scheme_and_an_empty_path(self) -> None:
        for url, text in {"http://localhost:1/w/a": "localhost:1/w/a", "http://localhost:1/": "localhost:1",
                          "http://localhost:1/w/": "localhost:1/w/", "chrome://settings/": "chrome://settings",
                          "chrome://newtab/": "", "about:blank": "about:blank"}.items():
            with self.subTest(url):
                self.assertEqual(_field_text(url), text)

    def test_page_is_asked_by_the_number_in_its_title(self) -> None:
        with WalkPages() as pages:
            pages.take(Event(0, 12, "focus", "on"))
            pages.take(Event(1, 12, "focus", "off"))
            self.assertEqual(pages.state(pages.load_of("Page #12 - Chromium"), "focus"), "off")
            self.assertEqual(pages.state(pages.load_of("New Tab - Chromium"), "focus"), "")


class TheFigures(unittest.TestCase):
    def test_wrong_and_skipped_steps_are_never_counted_as_right(self) -> None:
        steps = [Step(1, "link", "ordinary", carried_out=True, delay=0.01), Step(2, "link", "ordinary", delay=0.01),
                 Step(3, "link", "ordinary", carried_out=True, fault="answer"),
                 Step(4, "link", "ordinary", carried_out=True, delay=0.5)]
        row = next(line for line in summary(steps, "browser", 1).splitlines() if line.startswith("all")).split("  ")
        self.assertEqual([cell.strip() for cell in row if cell.strip()][:7], ["all", "4", "1", "1", "1", "33.3 %", "66.7 %"])


class Growth(unittest.TestCase):
    def found(self, memory, log=lambda n: 100 * n) -> str:  # type: ignore[no-untyped-def]
        """What is said of twenty minutes with these values by sample number; five of them are warm-up."""
        return "\n".join(what_grows([Sample(30.0 * n, {"private dirty KiB": memory(n), "descriptors": 20.0, "threads": 9.0,
                                                       "registrations": 4.0}, log(n), n) for n in range(41)], 300))

    def test_steady_growth_is_found(self) -> None:
        self.assertIn("private dirty KiB", self.found(lambda n: 5000 + 100 * n))

    def test_growth_that_ends_with_the_warm_up_is_none(self) -> None:
        self.assertEqual(self.found(lambda n: 5000 + 1000 * min(n, 9)), "")

    def test_single_peak_is_no_growth(self) -> None:
        self.assertEqual(self.found(lambda n: 50000 if n == 39 else 5000), "")

    def test_log_may_grow_with_the_steps_but_no_faster(self) -> None:
        self.assertEqual(self.found(lambda n: 5000), "")
        self.assertIn("log", self.found(lambda n: 5000, lambda n: 10 * n * n))

    def test_too_few_samples_prove_nothing(self) -> None:
        self.assertIn("too few", "\n".join(what_grows([], 300)))


if __name__ == "__main__":
    unittest.main(verbosity=2)
