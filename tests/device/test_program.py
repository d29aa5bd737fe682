"""The gateway's program as a file: its size, what it loads, and how it is hardened."""

import os
import re
import subprocess
from pathlib import Path

import pytest

PROGRAM = Path(os.environ["PROGRAM"])
LIMIT = int(os.environ["LIMIT"])
# The C library comes with its loader, which programs of some processors name as well.
C_LIBRARY = re.compile(r"libc\.so\.6|ld(-linux.*)?\.so\.\d+")
OTHER_LIBRARIES = {"libcfg.so", "libini.so", "libstdc++.so.6", "libgcc_s.so.1"}


@pytest.fixture(scope="module")
def described():
    """What readelf says of the program's header, segments, dynamic section and symbols."""
    command = ["readelf", "--wide", "--file-header", "--segments", "--dynamic", "--dyn-syms", str(PROGRAM)]
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=60).stdout


def segment(described, name):
    """A segment's flags."""
    found = re.search(rf"^\s+{name}\s+(?:0x[0-9a-f]+\s+){{5}}([RWE ]+)", described, re.MULTILINE)
    return found and found[1].replace(" ", "")


def test_is_no_larger_than_the_flash_has_room_for():
    assert 0 < PROGRAM.stat().st_size <= LIMIT


def test_loads_the_gateways_libraries_and_those_of_the_compiler(described):
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", described))
    assert {library for library in needed if not C_LIBRARY.fullmatch(library)} == OTHER_LIBRARIES


def test_looks_for_libraries_nowhere_else(described):
    assert not re.search(r"\((RPATH|RUNPATH)\)", described)


def test_is_loaded_at_a_random_address(described):
    assert re.search(r"^\s+Type:\s+DYN", described, re.MULTILINE)
    assert re.search(r"\(FLAGS_1\).*\bPIE\b", described)


def sections_of(described, name):
    """The sections that a segment holds."""
    kinds = re.findall(r"^\s+([A-Z_]+)\s+(?:0x[0-9a-f]+\s+){5}", described, re.MULTILINE)
    return re.search(rf"^\s+{kinds.index(name):02}\s(.*)$", described, re.MULTILINE)[1].split()


def test_addresses_of_functions_are_read_only(described):
    assert segment(described, "GNU_RELRO") == "R"
    assert re.search(r"\(FLAGS\).*\bBIND_NOW\b", described)
    read_only = sections_of(described, "GNU_RELRO")
    assert ".data.rel.ro" in read_only
    # The linker of MIPS leaves this table writable.
    is_mips = re.search(r"^\s+Machine:\s+MIPS", described, re.MULTILINE) is not None
    assert (".got" in read_only) is not is_mips


def test_stack_and_code_are_not_both_written_and_run(described):
    assert segment(described, "GNU_STACK") == "RW"
    loaded = re.findall(r"^\s+LOAD\s+(?:0x[0-9a-f]+\s+){5}([RWE ]+?)\s+0x", described, re.MULTILINE)
    assert loaded and not [flags for flags in loaded if "W" in flags and "E" in flags]
    assert "(TEXTREL)" not in described


@pytest.mark.parametrize("symbol", ["__stack_chk_fail", "__memcpy_chk", "__snprintf_chk"])
def test_checks_its_stack_and_the_sizes_of_what_it_copies(described, symbol):
    assert re.search(rf"\bUND {symbol}@", described)


def test_is_stripped():
    sections = subprocess.run(["readelf", "--wide", "--sections", str(PROGRAM)], capture_output=True, text=True, timeout=60)
    assert ".dynsym" in sections.stdout
    assert ".symtab" not in sections.stdout
    assert ".debug" not in sections.stdout
