"""A unit is kept in a file while it runs, and is afterwards what it was."""

from bench import MODEM_INFO, field
from station import Station


def serial():
    with Station() as station:
        return field(station.read(MODEM_INFO), "SERIAL_NUM")


def test_saved_unit_is_what_it_was(bench, tmp_path):
    file = tmp_path / "saved"
    bench.set("ProductionData", "SerialNum", "4711")
    bench.gateway("press", "wps")
    bench.gateway_file("/NVRM/note").write_text("kept")
    state = bench.state()
    bench.gateway("save", str(file))
    assert bench.state() == state
    bench.set("ProductionData", "SerialNum", "4712")
    bench.gateway("release", "wps")
    bench.gateway("line", "down")
    bench.gateway_file("/NVRM/note").write_text("lost")
    changed = bench.state()
    result = bench.gateway("load", str(file), check=False)
    assert (result.returncode, result.stdout) == (1, "")
    assert "runs; it can be loaded once it has ended" in result.stderr
    assert (bench.state(), serial()) == (changed, "4712")
    bench.stop()
    bench.gateway("load", str(file))
    assert bench.state() == state
    assert bench.gateway_file("/NVRM/note").read_text() == "kept"
    # The rows up to the saving are its journal, and the next boot goes on from there.
    assert bench.rows("action")[-1] == "press wps"
    bench.start()
    assert serial() == "4711"
    assert bench.rows("boot") == ["normal", "normal"]


def test_file_that_holds_no_unit_is_refused(stopped, tmp_path):
    (tmp_path / "file").write_text("no unit")
    for name, reason in (("file", "holds no unit"), ("nothing", "can't be read")):
        result = stopped.gateway("load", str(tmp_path / name), check=False)
        assert result.returncode == 1
        assert reason in result.stderr
        assert not stopped.folder.exists()
