"""Operations in progress: reports, cancellation, threads, signals and the exceptions of callables."""

from __future__ import annotations

import io
import os
import pickle
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Any, List, Tuple, cast

import cryptcli
import pytest
from conftest import CONTENT, MakeClient
from cryptcli._operation import run_interruptibly
from environment import ROOM, Environment

LARGE = b"p" * 3_000_000


class Mine(Exception):
    """Raised only by callables of these tests."""


def test_progress_grows_to_the_size_of_the_source(client: cryptcli.Client, tmp_path: Path) -> None:
    steps: List[Tuple[int, int]] = []
    client.encrypt(
        ROOM, io.BytesIO(LARGE), tmp_path / "secret", progress=lambda done, total: steps.append((done, total))
    )
    done = [step[0] for step in steps]
    assert len(done) > 10
    assert done == sorted(done)
    assert steps[-1] == (len(LARGE), len(LARGE))


def test_progress_cancels_by_false(client: cryptcli.Client, tmp_path: Path) -> None:
    (tmp_path / "secret").write_bytes(b"as before")
    with pytest.raises(cryptcli.Cancelled):
        client.encrypt(
            ROOM, io.BytesIO(LARGE), tmp_path / "secret", progress=lambda done, total: done < total // 2
        )
    assert (tmp_path / "secret").read_bytes() == b"as before"


def test_an_exception_of_progress_reaches_the_caller(client: cryptcli.Client, tmp_path: Path) -> None:
    calls = []

    def progress(done: int, total: int) -> None:
        calls.append(done)
        raise Mine("enough")

    with pytest.raises(Mine, match="enough"):
        client.encrypt(ROOM, io.BytesIO(LARGE), tmp_path / "secret", progress=progress)
    assert len(calls) == 1
    assert not (tmp_path / "secret").exists()


def test_an_exception_of_progress_reaches_its_caller_on_other_threads(client: cryptcli.Client, tmp_path: Path) -> None:
    caught: List[BaseException] = []

    def progress(done: int, total: int) -> None:
        raise Mine

    def work() -> None:
        try:
            client.encrypt(ROOM, io.BytesIO(LARGE), tmp_path / "secret", progress=progress)
        except Mine as exception:
            caught.append(exception)

    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    assert len(caught) == 1


def test_an_exception_of_the_log_reaches_the_caller(make_client: MakeClient, tmp_path: Path) -> None:
    def log(level: cryptcli.LogLevel, message: str) -> None:
        raise Mine

    with pytest.raises(Mine):
        make_client(log=log).encrypt(ROOM, io.BytesIO(CONTENT), tmp_path / "secret")
    assert not (tmp_path / "secret").exists()


def test_cancelling_ends_an_exchange_that_waits(
    environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path
) -> None:
    environment.set_fault("key servers", "slow", number=60_000)
    cancel = cryptcli.Cancellation()
    timer = threading.Timer(0.2, cancel.cancel)
    timer.start()
    start = time.monotonic()
    with pytest.raises(cryptcli.Cancelled):
        client.decrypt(ROOM, protected, tmp_path / "opened", cancel=cancel)
    timer.join()
    assert time.monotonic() - start < 30
    assert not (tmp_path / "opened").exists()


def test_a_cancellation_stays_and_ends_later_operations(
    environment: Environment, client: cryptcli.Client, protected: Path
) -> None:
    cancel = cryptcli.Cancellation()
    cancel.cancel()
    assert cancel.cancelled
    before = environment.count_requests()
    with pytest.raises(cryptcli.Cancelled):
        client.verify(ROOM, protected, cancel=cancel)
    with pytest.raises(cryptcli.Cancelled):
        client.encrypt(ROOM, io.BytesIO(CONTENT), io.BytesIO(), cancel=cancel)
    assert environment.count_requests() == before
    client.verify(ROOM, protected)


def test_one_cancellation_ends_many_operations(
    environment: Environment, client: cryptcli.Client, protected: Path
) -> None:
    environment.set_fault("key servers", "slow", number=60_000)
    cancel = cryptcli.Cancellation()
    ended: List[bool] = []

    def work() -> None:
        with pytest.raises(cryptcli.Cancelled):
            client.verify(ROOM, protected, cancel=cancel)
        ended.append(True)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    time.sleep(0.3)
    cancel.cancel()
    for thread in threads:
        thread.join(30)
    assert len(ended) == 4


def test_a_signal_handler_ends_an_exchange_that_waits(
    environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path
) -> None:
    environment.set_fault("key servers", "slow", number=60_000)
    timer = threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT))
    timer.start()
    start = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        client.decrypt(ROOM, protected, tmp_path / "opened")
    timer.join()
    assert time.monotonic() - start < 30
    assert not (tmp_path / "opened").exists()


def test_a_second_signal_does_not_leave_the_work_alone() -> None:
    main = threading.main_thread().ident or 0
    ended: List[str] = []

    class Stopped:
        """An operation whose cancellation is interrupted itself."""

        calls = 0

        def stop(self, _exception: BaseException) -> None:
            self.calls += 1
            if self.calls == 1:
                raise KeyboardInterrupt

    def work() -> None:
        time.sleep(0.2)
        signal.pthread_kill(main, signal.SIGINT)
        time.sleep(0.5)
        ended.append("ended")

    with pytest.raises(KeyboardInterrupt):
        run_interruptibly(cast(Any, Stopped()), work)
    assert ended == ["ended"]


def test_an_interrupted_client_can_be_used_again(client: cryptcli.Client, protected: Path) -> None:
    main = threading.main_thread().ident or 0
    for _ in range(20):
        steps: List[int] = []

        def progress(done: int, total: int) -> None:
            if not steps:
                signal.pthread_kill(main, signal.SIGINT)
            steps.append(done)

        with pytest.raises(KeyboardInterrupt):
            client.verify(ROOM, protected, progress=progress)
    assert client.verify(ROOM, protected).origin is cryptcli.Origin.PROVEN


def test_other_threads_run_meanwhile(
    environment: Environment, client: cryptcli.Client, protected: Path
) -> None:
    environment.set_fault("key servers", "slow", number=1_000, uses=1)
    longest = 0.0
    stop = threading.Event()

    def watch() -> None:
        nonlocal longest
        last = time.monotonic()
        while not stop.wait(0.01):
            longest = max(longest, time.monotonic() - last)
            last = time.monotonic()

    watcher = threading.Thread(target=watch)
    watcher.start()
    start = time.monotonic()
    client.verify(ROOM, protected)
    spent = time.monotonic() - start
    stop.set()
    watcher.join()
    assert spent > 1.0
    assert longest < spent / 2  # if the lock were not released, the other thread would wait all the time


def test_one_client_serves_many_threads(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    opened: List[bytes] = []

    def work(number: int) -> None:
        target = io.BytesIO()
        client.decrypt(ROOM, protected, target)
        opened.append(target.getvalue())

    threads = [threading.Thread(target=work, args=(number,)) for number in range(16)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert opened == [CONTENT] * 16


def test_closing_waits_for_operations(
    environment: Environment, make_client: MakeClient, protected: Path
) -> None:
    client = make_client()
    environment.set_fault("key servers", "slow", number=2_000, uses=1)
    started = threading.Event()
    ended: List[float] = []

    def progress(done: int, total: int) -> None:
        started.set()

    def work() -> None:
        client.verify(ROOM, protected, progress=progress)
        ended.append(time.monotonic())

    thread = threading.Thread(target=work)
    thread.start()
    assert started.wait(30)
    start = time.monotonic()
    client.close()
    assert time.monotonic() - start > 0.3
    thread.join()
    assert ended


def test_a_closed_client_refuses_operations(client: cryptcli.Client, protected: Path) -> None:
    client.close()
    client.close()
    with pytest.raises(cryptcli.InvalidArgument, match="The client is closed"):
        client.verify(ROOM, protected)


def test_the_context_closes_the_client(environment: Environment, protected: Path) -> None:
    with cryptcli.Client(environment.service) as client:
        client.verify(ROOM, protected)
    with pytest.raises(ValueError):
        client.verify(ROOM, protected)


def test_a_callable_may_not_use_its_own_client(client: cryptcli.Client, protected: Path) -> None:
    with pytest.raises(cryptcli.InvalidArgument, match="has to use another client"):
        client.verify(ROOM, protected, progress=lambda done, total: bool(client.verify(ROOM, protected)))
    with pytest.raises(cryptcli.InvalidArgument, match="cannot close its client"):
        client.verify(ROOM, protected, progress=lambda done, total: client.close())


def test_a_callable_may_use_another_client(make_client: MakeClient, protected: Path) -> None:
    other = make_client()
    inner: List[Any] = []

    def progress(done: int, total: int) -> None:
        if not inner:
            inner.append(other.verify(ROOM, protected).origin)

    assert make_client().verify(ROOM, protected, progress=progress).origin is cryptcli.Origin.PROVEN
    assert inner == [cryptcli.Origin.PROVEN]


def test_what_cannot_be_called_is_refused(client: cryptcli.Client, protected: Path) -> None:
    wrong: Any = 7
    with pytest.raises(TypeError, match="The progress has to be callable"):
        client.verify(ROOM, protected, progress=wrong)
    with pytest.raises(TypeError, match="The log has to be callable"):
        cryptcli.Client("http://host/", log=wrong)


def test_a_client_belongs_to_its_process(environment: Environment, protected: Path) -> None:
    program = (
        "import os, sys, cryptcli\n"
        "client = cryptcli.Client(sys.argv[1])\n"
        "client.verify('demo', sys.argv[2])\n"
        "child = os.fork()\n"
        "try:\n"
        "    client.verify('demo', sys.argv[2])\n"
        "except cryptcli.InvalidArgument as error:\n"
        "    print(error, flush=True)\n"
        "    client.close()\n"
        "    with cryptcli.Client(sys.argv[1]) as own:\n"
        "        print(own.verify('demo', sys.argv[2]).origin.name, flush=True)\n"
        "if child:\n"
        "    print(os.waitpid(child, 0)[1], client.verify('demo', sys.argv[2]).origin.name)\n"
    )
    ended = subprocess.run(
        [sys.executable, "-B", "-c", program, environment.service, protected], capture_output=True, timeout=60
    )
    assert ended.stdout == b"The client was made in another process\nPROVEN\n0 PROVEN\n"
    assert (ended.returncode, ended.stderr) == (0, b"")


def test_a_client_cannot_be_pickled(client: cryptcli.Client) -> None:
    with pytest.raises(TypeError, match="make one in each process"):
        pickle.dumps(client)


def test_a_process_ends_quietly_with_an_open_client(environment: Environment, protected: Path) -> None:
    program = (
        "import sys, cryptcli\n"
        "client = cryptcli.Client(sys.argv[1], log=lambda level, message: None)\n"
        "client.verify('demo', sys.argv[2])\n"
    )
    ended = subprocess.run(
        [sys.executable, "-B", "-c", program, environment.service, protected], capture_output=True, timeout=60
    )
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, b"", b"")


def test_operations_work_while_the_interpreter_ends(environment: Environment, protected: Path) -> None:
    program = (
        "import atexit, sys, cryptcli\n"
        "client = cryptcli.Client(sys.argv[1])\n"
        "atexit.register(lambda: print(client.verify('demo', sys.argv[2]).origin.name))\n"
    )
    ended = subprocess.run(
        [sys.executable, "-B", "-c", program, environment.service, protected], capture_output=True, timeout=60
    )
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, b"PROVEN\n", b"")
