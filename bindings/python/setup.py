"""Puts protocol.json, which the project's build writes, into the package."""

import os
import shutil
from pathlib import Path
from typing import Optional

from setuptools import setup
from setuptools.command.build_py import build_py

BUILDS = ("release", "dev")


def protocol() -> Optional[Path]:
    named = os.environ.get("QUILLWORK_PROTOCOL")
    if named:
        return Path(named)
    project = Path(__file__).resolve().parents[2]
    written = (project / "build" / build / "protocol.json" for build in BUILDS)
    return next((path for path in written if path.is_file()), None)


class BuildWithProtocol(build_py):
    """Without a protocol.json the package looks for an installed one when it starts."""

    def run(self) -> None:
        super().run()
        path = protocol()
        if path is not None:
            shutil.copy(path, Path(self.build_lib) / "quillwork_ipc" / "protocol.json")


setup(cmdclass={"build_py": BuildWithProtocol})
