"""Which model belongs to which program."""

from .monitor import Monitor
from .recorder import Recorder

MODELS = {"unit-monitor": Monitor, "trip-recorder": Recorder}


def findings(run):
    """What a run shows that must not be, each as "what it is about: text"."""
    return MODELS[run.script.program](run).check()


def rules(texts):
    return {text.partition(":")[0] for text in texts}
