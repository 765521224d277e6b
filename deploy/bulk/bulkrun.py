"""The folder of a bulk run, which submit makes, tasks fill and collect reads:

    run.json          what submit was told, and how many names each shard has; written last
    command           the program and its arguments but for the list, each ended by a NUL
    header            the first line that every result has to have: engine and signatures
    shards/N          names of files, each ended by a NUL
    results/N.jsonl   whole results; whatever else is there was never finished
    logs/JOB_N.log    what the tasks had to say
"""
import json
import os
import subprocess

LONGEST_NAME = 64 * 1024  # The program takes no longer one.


class BulkError(Exception):
    """What keeps a command from its work, in words for its user."""


def read_names(file, separator=b"\0"):
    """The names in an open list, one after another; the last one may lack its separator."""
    rest = b""
    while True:
        block = file.read(1 << 20)
        if not block:
            break
        names = (rest + block).split(separator)
        rest = names.pop()
        if len(rest) > LONGEST_NAME:
            break
        yield from names
    if rest:
        yield rest


def ranges(numbers):
    """[0, 1, 2, 7] as "0-2,7"."""
    runs = []
    for number in numbers:
        if runs and runs[-1][1] == number - 1:
            runs[-1][1] = number
        else:
            runs.append([number, number])
    return ",".join(str(first) if first == last else "%d-%d" % (first, last) for first, last in runs)


def output_of(command):
    """What one of Slurm's commands prints; on standard error it speaks for itself."""
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE)
    except OSError as error:
        raise BulkError("cannot run %s: %s" % (command[0], error.strerror))
    if done.returncode != 0:
        raise BulkError("%s ended with status %d" % (command[0], done.returncode))
    return done.stdout


class Run:
    """A run that submit has prepared."""

    def __init__(self, folder):
        self.folder = os.path.abspath(folder)
        try:
            with open(self.path("run.json"), encoding="ascii") as file:
                self.settings = json.load(file)
            with open(self.path("header"), "rb") as file:
                self.header = file.read()
        except (OSError, ValueError) as error:
            raise BulkError("%s is no folder that submit has prepared: %s" % (self.folder, error))
        self.counts = self.settings["names"]

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def result(self, shard):
        return self.path("results", "%07d.jsonl" % shard)

    def names(self, shard):
        """The names of a shard. An error when there are not as many as submit wrote."""
        with open(self.path("shards", "%07d" % shard), "rb") as file:
            count = 0
            for name in read_names(file):
                count += 1
                yield name
        if count != self.counts[shard]:
            raise BulkError("shard %d had %d names and has %d" % (shard, self.counts[shard], count))

    def submit(self, shards):
        """Submits an array job with a task for each of the shards. Its number."""
        settings = self.settings
        command = ["sbatch", "--parsable", "--no-requeue", "--array=%s%%%d" % (ranges(shards), settings["at_once"]),
                   "--job-name=" + settings["job_name"], "--chdir=" + settings["directory"],
                   "--output=" + self.path("logs", "%A_%a.log"), "--cpus-per-task=%d" % settings["cpus"]]
        script = os.path.join(os.path.dirname(os.path.realpath(__file__)), "shard.sbatch")
        answer = output_of(command + settings["sbatch"] + [script, self.folder])
        return answer.decode("ascii", "replace").strip()

    def waiting(self):
        """The shards whose tasks are in the queue or running."""
        command = ["squeue", "--noheader", "--array", "--format=%K", "--name=" + self.settings["job_name"],
                   "--states=pending,configuring,running,suspended,completing"]
        return {int(number) for number in output_of(command).split()}
