import pytest

from bench import Bench
from station import Station


@pytest.fixture
def stopped(tmp_path):
    """A unit in factory state that hasn't been started. Whatever it did, nothing that checks it may have spoken up."""
    bench = Bench(tmp_path / "unit")
    try:
        yield bench
    finally:
        bench.stop()
    assert bench.sanitizer_reports() == [], "\n".join(bench.output)


@pytest.fixture
def bench(stopped):
    """A running unit in factory state."""
    return stopped.start()


@pytest.fixture
def station(bench):
    with Station() as station:
        yield station


@pytest.fixture
def other(bench):
    """A second port that sends to the same unit."""
    with Station() as station:
        yield station


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """Shows what the unit printed next to a failed test."""
    report = (yield).get_result()
    bench = item.funcargs.get("stopped")
    if report.failed and bench:
        report.sections.append(("what the unit printed", "\n".join(bench.output[-200:])))
