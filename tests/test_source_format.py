"""The C++ sources follow the project's .clang-format."""

import shutil
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def test_engine_sources_are_formatted():
    clang_format = shutil.which("clang-format")
    assert clang_format is not None, "clang-format is installed with the test extras"
    sources = sorted(str(p) for p in (ROOT / "engine").rglob("*") if p.suffix in {".cpp", ".hpp"})
    assert sources
    result = subprocess.run([clang_format, "--dry-run", "--Werror", *sources], capture_output=True, text=True)
    assert result.returncode == 0, result.stderr[:2000]
