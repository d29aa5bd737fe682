"""How long the tests wait for a unit. SLOWNESS is how many times slower than usual its service is run."""

import os

SLOWNESS = float(os.environ.get("SLOWNESS", "1"))
PATIENCE = 30.0 * SLOWNESS  # seconds for what a unit does
ANSWER_TIME = 10.0 * SLOWNESS  # seconds for the next packet
COMMAND_TIME = 60.0 * SLOWNESS  # seconds for a program that works with a unit
LATENESS = 0.8 * SLOWNESS  # seconds by which a time-out of the service may come late
