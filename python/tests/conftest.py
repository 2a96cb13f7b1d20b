"""Simulated devices for the tests: vmio-sim run as a subprocess, as an integrator would."""

import os
import shutil
import subprocess

import pytest


class Sim:
    """A running vmio-sim: its device string, and control lines sent to its standard input."""

    def __init__(self, make, *options):
        self._start(make, "--listen", "127.0.0.1:0", *options)
        line = self.process.stdout.readline()
        assert line.startswith("device: "), line
        self.device = line[len("device: "):].strip()

    def _start(self, *arguments):
        program = os.environ.get("VMIO_SIM") or shutil.which("vmio-sim")
        if not program:
            pytest.fail("vmio-sim not found: set VMIO_SIM to its path")
        self.process = subprocess.Popen([program, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True)

    def send(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline().strip()

    def stop(self):
        self.process.terminate()
        self.process.wait(timeout=10)


@pytest.fixture
def camera_sim():
    """A camera with inputs Door, Window, Input 3, Input 4 and outputs Siren, Output 2."""
    sim = Sim("axis", "--inputs", "4", "--outputs", "2", "--name-input", "1=Door", "--name-input", "2=Window",
              "--name-output", "1=Siren")
    yield sim
    sim.stop()


@pytest.fixture
def guarded_camera_sim():
    sim = Sim("axis", "--user", "root", "--password", "right", "--auth", "basic")
    yield sim
    sim.stop()


@pytest.fixture
def logger_sim():
    """Two simulated USB loggers: the device tree's root and their device paths."""
    program = os.environ.get("VMIO_SIM") or shutil.which("vmio-sim")
    process = subprocess.Popen([program, "logit", "--loggers", "2"], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, text=True)
    lines = [process.stdout.readline().strip() for _ in range(3)]
    assert lines[0].startswith("root: ") and all(line.startswith("device: ") for line in lines[1:]), lines
    yield lines[0][len("root: "):], [line[len("device: "):] for line in lines[1:]]
    process.terminate()
    process.wait(timeout=10)


class Fleet(Sim):
    """A running vmio-sim fleet: its devices as (class, device string, health), and control lines."""

    def __init__(self, *options):
        self._start("fleet", *options)
        self.devices = []
        for line in self.process.stdout:
            if line.startswith("device: "):
                break
            progid, device, health = line.split()
            self.devices.append((progid, device, health))
        assert self.devices, "vmio-sim fleet printed no device"


@pytest.fixture
def fleet_sim():
    """Six cameras and two ADAM modules; one camera silent, one module never accepting."""
    fleet = Fleet("--devices", "8", "--adam", "2", "--silent", "1", "--unaccepting", "1", "--base", "127.252.0.1")
    yield fleet
    fleet.stop()
