"""Real servers for the tests of an application: the local test environment.

    import cryptcli
    from cryptcli.testing import Environment

    with Environment() as environment, cryptcli.Client(environment.service) as client:
        client.encrypt(environment.room, "report.pdf", "report.p7m")

Environment runs the program cryptstand, which is a crypt service and several key servers with real keys. For pytest,
`pytest_plugins = ["cryptcli.testing.plugin"]` in conftest.py gives it as a fixture. Replay repeats without servers what
was recorded with them.
"""

from ._environment import ControlError, Environment, NotStarted
from ._replay import NoRecording, NotRecorded, Replay

__all__ = ["ControlError", "Environment", "NoRecording", "NotRecorded", "NotStarted", "Replay"]
