"""What the tests share: the repository's examples, golden files and conformance cases."""

from __future__ import annotations

import json
import pathlib
from typing import Any

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]
EXAMPLES = ROOT / "examples"
GOLDEN = ROOT / "tests" / "golden"
CONFORMANCE: dict[str, Any] = json.loads((ROOT / "tests" / "conformance.json").read_text(encoding="utf-8"))
PRODUCTS = ["kettle", "air_conditioner", "gateway", "power_meter"]


@pytest.fixture
def kettle() -> Any:
    import morvix_protocol

    return morvix_protocol.load(EXAMPLES / "kettle.json").entity()
