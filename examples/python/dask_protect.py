#!/usr/bin/env python3
"""Protects and checks many files on many machines, with Dask as the engine.

    dask_protect.py --scheduler tcp://scheduler:8786 --service https://crypt.example.com/api --room room-1 \\
        --output /shared/protected /shared/plain/*

Every worker needs the package cryptcli, runs as the same user and sees the files under the same paths. After an
interruption, run the same command again: a file is skipped if its protected file exists, verifies and has the same
content, and fails if its protected file is not of proven origin. Only failures that the library calls retryable are
tried again. When a worker dies, Dask gives its files to other workers.

A protected file appears in the output folder complete and verified, or not at all: it is made in a folder beside it,
on the same file system, which is removed at the end with everything that a killed worker left there. Checking writes
plain content to private temporary files; give workers a TMPDIR that is removed with them.

Prints one JSON object for each file. Exit code 0 if all are protected, 1 otherwise.
"""

from __future__ import annotations

import argparse
import dataclasses
import filecmp
import functools
import json
import os
import random
import shutil
import sys
import tempfile
import time
from typing import Callable, Iterator, List, Optional, TypeVar

import cryptcli

Result = TypeVar("Result")

ATTEMPTS = 5
FIRST_PAUSE_SECONDS = 0.5


@dataclasses.dataclass(frozen=True)
class Job:
    """One file to protect, with everything that a worker needs. Sent to workers, so it has plain values only."""

    service: str
    room: str
    ca_file: Optional[str]
    source: str
    target: str
    staging: str


@dataclasses.dataclass(frozen=True)
class Outcome:
    """The result for a file, "protected", "skipped" or "failed", and the process that worked on it."""

    target: str
    result: str
    worker: int
    code: str = "ok"
    message: str = ""


@functools.lru_cache(maxsize=None)
def client_for(service: str, ca_file: Optional[str]) -> cryptcli.Client:
    """The client of this process; its connections are shared by all jobs and threads."""
    return cryptcli.Client(service, ca_file=ca_file)


def retrying(work: Callable[[], Result]) -> Result:
    """Repeats work that failed for a reason that may pass, after growing random pauses."""
    pause = FIRST_PAUSE_SECONDS
    for _ in range(ATTEMPTS - 1):
        try:
            return work()
        except cryptcli.Error as error:
            if not error.retryable:
                raise
        time.sleep(random.uniform(pause / 2, pause))
        pause *= 2
    return work()


def is_protected(client: cryptcli.Client, job: Job) -> bool:
    """Whether the target exists, is complete and of proven origin, and has the content of the source.

    A target without proven origin raises an error: it may belong to somebody else, or be evidence, so it is kept.
    """
    if not os.path.exists(job.target):
        return False
    # tempfile alone could fall back to the working directory, which may be shared.
    with tempfile.TemporaryDirectory(dir=os.environ.get("TMPDIR") or "/tmp") as folder:
        opened = os.path.join(folder, "opened")
        try:
            retrying(lambda: client.decrypt(job.room, job.target, opened))
        except (cryptcli.NotProtected, cryptcli.Damaged):
            return False
        return filecmp.cmp(job.source, opened, shallow=False)


def protect(job: Job) -> Outcome:
    """Protects one file, on a worker. May run again, or twice at once: the result is the same."""
    try:
        client = client_for(job.service, job.ca_file)
        if is_protected(client, job):
            return Outcome(job.target, "skipped", os.getpid())
        with tempfile.TemporaryDirectory(dir=job.staging) as folder:
            made = os.path.join(folder, "protected")
            retrying(lambda: client.encrypt(job.room, job.source, made))
            retrying(lambda: client.verify(job.room, made))
            os.replace(made, job.target)
        return Outcome(job.target, "protected", os.getpid())
    except cryptcli.Error as error:
        return Outcome(job.target, "failed", os.getpid(), error.code.name.lower(), error.message)
    except OSError as error:
        return Outcome(job.target, "failed", os.getpid(), "io", str(error))


def run(scheduler: str, jobs: List[Job]) -> Iterator[Outcome]:
    """Gives the jobs to the workers of the scheduler; yields outcomes as they come."""
    import distributed  # not needed on workers, which import this module

    # Imported by name, which the workers know after the upload. Functions of __main__ would be copied with each job,
    # and each copy would make a client of its own.
    import dask_protect

    with distributed.Client(scheduler) as engine:
        engine.upload_file(__file__)
        futures = engine.map(dask_protect.protect, jobs, key=[f"protect-{job.target}" for job in jobs])
        for future, outcome in distributed.as_completed(futures, with_results=True):
            future.release()  # otherwise Dask computes it again when its worker dies
            yield outcome


def make_jobs(options: argparse.Namespace, staging: str) -> List[Job]:
    """A job for each file, whose target has the file's name."""
    output = os.path.abspath(options.output)
    targets = [os.path.join(output, os.path.basename(source) + ".p7m") for source in options.sources]
    if len(set(targets)) != len(targets):
        sys.exit("dask_protect: two files have the same name")
    return [
        Job(options.service, options.room, options.ca_file, os.path.abspath(source), target, staging)
        for source, target in zip(options.sources, targets)
    ]


def main() -> int:
    parser = argparse.ArgumentParser(description="Protects and checks many files on many machines.")
    parser.add_argument("--scheduler", required=True, help="address of the Dask scheduler")
    parser.add_argument("--service", required=True, help="base URL of the crypt service")
    parser.add_argument("--room", required=True, help="the room to protect the files for")
    parser.add_argument("--ca-file", help="certification authorities to trust in place of the system's")
    parser.add_argument("--output", required=True, help="folder of the protected files")
    parser.add_argument("sources", nargs="+", metavar="FILE")
    options = parser.parse_args()
    os.makedirs(options.output, exist_ok=True)
    staging = tempfile.mkdtemp(prefix=".staging-", dir=os.path.dirname(os.path.abspath(options.output)))
    failed = 0
    try:
        for outcome in run(options.scheduler, make_jobs(options, staging)):
            print(json.dumps(dataclasses.asdict(outcome)), flush=True)
            failed += outcome.result == "failed"
    finally:
        shutil.rmtree(staging, ignore_errors=True)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
