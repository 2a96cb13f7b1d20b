"""`vmio ... --json` read by a JSON reader, as scripts do."""

import json
import os
import shutil
import subprocess

import pytest


def vmio_cli(*args):
    program = os.environ.get("VMIO_TOOL") or shutil.which("vmio")
    if not program:
        pytest.fail("vmio not found: set VMIO_TOOL to its path")
    return subprocess.run([program, *args], capture_output=True, text=True, timeout=60)


def test_ports_get_watch_and_errors_parse_as_json(camera_sim):
    listing = json.loads(vmio_cli("ports", "axis", camera_sim.device, "--json").stdout)
    assert listing["class"] == "VMIO.Axis"
    assert [p["name"] for p in listing["ports"]][:2] == ["Door", "Window"]
    assert {p["value"] for p in listing["ports"]} == {False}

    assert json.loads(vmio_cli("get", "axis", camera_sim.device, "0", "--json").stdout)["value"] is False

    watch = vmio_cli("watch", "axis", camera_sim.device, "--count", "1", "--json")
    lines = [json.loads(line) for line in watch.stdout.splitlines()]
    assert [line["index"] for line in lines] == list(range(6))
    assert all(line["time"][10] == "T" and line["time"][-6] in "+-" for line in lines)

    failed = vmio_cli("get", "axis", camera_sim.device, "9", "--json")
    assert failed.returncode == 1
    error = json.loads(failed.stdout)["error"]
    assert (error["number"], error["description"]) == (9, "Subscript out of range")
    axis = json.loads(vmio_cli("classes", "--json").stdout)[1]
    assert (axis["progid"], axis["name"], axis["device"]) == ("VMIO.Axis", "axis", "[https://][user:password@]host[:port]")
