#!/usr/bin/python3
"""The daemon as a person runs it: a private bus, a tesseld of the build tree
in a temporary Library, driven with tesselctl --json. Every process started
here is bounded in time and stopped at the end; nothing leaves loopback."""
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD = os.environ.get("TESSEL_BUILD_DIR", "")
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TESSELD = os.path.join(BUILD, "bin", "tesseld")
TESSELCTL = os.path.join(BUILD, "bin", "tesselctl")
BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <include>/usr/share/dbus-1/session.conf</include>
  <servicedir>{services}</servicedir>
</busconfig>
"""


def wait_until(predicate, seconds=20.0, step=0.05):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(step)
    return False


class PrivateSession:
    """A private session bus (with a service directory for activation) and a Library."""

    def __init__(self):
        self.directory = tempfile.mkdtemp(prefix="tessel-it-")
        self.library = os.path.join(self.directory, "Library")
        self.services = os.path.join(self.directory, "services")
        os.makedirs(self.services)
        config = os.path.join(self.directory, "bus.conf")
        with open(config, "w") as file:
            file.write(BUS_CONFIG.format(services=self.services))
        self.bus = subprocess.Popen(
            ["dbus-daemon", "--config-file=" + config, "--address=unix:dir=" + self.directory,
             "--nofork", "--print-address"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.bus.stdout.readline().strip()
        self.environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=self.address,
                                XDG_DATA_HOME=os.path.join(self.directory, "data"),
                                XDG_CONFIG_HOME=os.path.join(self.directory, "config"),
                                XDG_STATE_HOME=os.path.join(self.directory, "state"))
        self.environment.pop("JOURNAL_STREAM", None)
        self.daemons = []

    def install_examples(self):
        applications = os.path.join(self.library, "Applications")
        os.makedirs(applications, exist_ok=True)
        for name in os.listdir(os.path.join(SOURCE, "examples")):
            if name.endswith(".tapp"):
                shutil.copytree(os.path.join(SOURCE, "examples", name), os.path.join(applications, name))

    def start_daemon(self, *arguments):
        log = open(os.path.join(self.directory, "tesseld-%d.log" % len(self.daemons)), "w+")
        daemon = subprocess.Popen([TESSELD, "--library", self.library, *arguments], env=self.environment,
                                  stdout=log, stderr=subprocess.STDOUT)
        self.daemons.append((daemon, log))
        return daemon

    def wait_for_service(self, seconds=30.0):
        return wait_until(lambda: self.ctl("status").returncode == 0, seconds, 0.1)

    def ctl(self, *arguments, timeout=60):
        return subprocess.run([TESSELCTL, "--json", *arguments], env=self.environment, capture_output=True,
                              text=True, timeout=timeout)

    def ctl_json(self, *arguments):
        result = self.ctl(*arguments)
        if result.returncode != 0:
            raise AssertionError("tesselctl %s: %d %s" % (" ".join(arguments), result.returncode, result.stderr))
        return json.loads(result.stdout)

    def close(self):
        for daemon, log in self.daemons:
            if daemon.poll() is None:
                daemon.kill()
            daemon.wait(10)
            log.close()
        self.bus.terminate()
        self.bus.wait(10)
        shutil.rmtree(self.directory, ignore_errors=True)


def daemon_log(session, index=0):
    with open(os.path.join(session.directory, "tesseld-%d.log" % index)) as file:
        return file.read()


class Daemon(unittest.TestCase):
    def setUp(self):
        self.session = PrivateSession()
        self.session.install_examples()

    def tearDown(self):
        self.session.close()

    def test_a_second_instance_is_refused_and_sigterm_stops_cleanly(self):
        first = self.session.start_daemon()
        self.assertTrue(self.session.wait_for_service(), daemon_log(self.session))
        second = self.session.start_daemon()
        self.assertEqual(second.wait(30), 1)
        self.assertRegex(daemon_log(self.session, 1),
                         r"another tesseld \(pid %d\) (already serves|is using)" % first.pid)
        first.send_signal(signal.SIGTERM)
        self.assertEqual(first.wait(30), 0)
        self.assertIn("Stopped", daemon_log(self.session))
        self.assertEqual(self.session.ctl("status").returncode, 3)

    def test_the_first_call_starts_the_daemon(self):
        with open(os.path.join(self.session.services, "com.tamber.Tessel.Control.service"), "w") as file:
            file.write("[D-BUS Service]\nName=com.tamber.Tessel.Control\nExec=%s --library %s\n"
                       % (TESSELD, self.session.library))
        # status never activates; any other call does.
        self.assertEqual(self.session.ctl("status").returncode, 3)
        applications = self.session.ctl_json("apps")
        self.assertIn("org.example.Chat", json.dumps(applications))
        self.assertEqual(self.session.ctl("status").returncode, 0)
        subprocess.run(["pkill", "-TERM", "-f", "tesseld --library " + self.session.library])

    def test_a_notification_due_while_the_daemon_was_killed_fires_once_after_the_restart(self):
        app = "org.example.Reminders"
        daemon = self.session.start_daemon()
        self.assertTrue(self.session.wait_for_service(), daemon_log(self.session))
        # The user allows it before the application asks, so its request is answered at once.
        self.session.ctl_json("--app", app, "settings", "allow")
        self.session.ctl_json("--app", app, "settings", "types", "alert,sound,badge")
        self.session.ctl_json("--app", app, "schedule", "--body", "Stretch", "--in", "3")
        self.session.ctl_json("--app", app, "schedule", "--body", "Later", "--in", "3600")
        daemon.send_signal(signal.SIGKILL)
        daemon.wait(10)
        time.sleep(4)
        self.session.start_daemon()
        self.assertTrue(self.session.wait_for_service(), daemon_log(self.session, 1))

        def bodies():
            return [n.get("body") or n.get("AppNotificationMessage") for n in delivered(self.session, app)]
        self.assertTrue(wait_until(lambda: "Stretch" in bodies(), 20), daemon_log(self.session, 1))
        time.sleep(1)
        self.assertEqual(bodies(), ["Stretch"])
        scheduled = self.session.ctl_json("--app", app, "list")
        self.assertIn("Later", json.dumps(scheduled))
        self.assertNotIn("Stretch", json.dumps(scheduled))


def delivered(session, app):
    answer = session.ctl_json("--app", app, "delivered")
    return answer if isinstance(answer, list) else answer.get("notifications", [])


class Walkthrough(unittest.TestCase):
    """The README's walk-through, command by command, as a newcomer types it."""

    def test_the_readme_walkthrough_works_as_written(self):
        with open(os.path.join(SOURCE, "README.md")) as file:
            readme = file.read()
        block = re.search(r"<!-- walkthrough -->\s*```sh\n(.*?)```", readme, re.S)
        self.assertIsNotNone(block, "README has no walk-through block")
        session = PrivateSession()
        try:
            session.install_examples()
            session.start_daemon()
            self.assertTrue(session.wait_for_service(), daemon_log(session))
            environment = dict(session.environment, PATH=os.path.join(BUILD, "bin") + ":" + os.environ["PATH"])
            expected, command = [], None
            steps = []
            for line in block.group(1).splitlines():
                if line.startswith("$ "):
                    if command:
                        steps.append((command, expected))
                    command, expected = line[2:], []
                elif command is not None and line.strip():
                    expected.append(line)
            if command:
                steps.append((command, expected))
            self.assertGreater(len(steps), 5)
            for command, lines in steps:
                if command.startswith("sleep "):
                    time.sleep(float(command.split()[1]))
                    continue
                result = subprocess.run(command, shell=True, env=environment, capture_output=True, text=True,
                                        timeout=60, cwd=SOURCE)
                self.assertEqual(result.returncode, 0, "%s: %s" % (command, result.stderr))
                output = result.stdout.splitlines()
                for wanted in lines:
                    # "..." in the README stands for what differs between runs (dates, tokens).
                    pattern = re.escape(wanted.rstrip()).replace(re.escape("..."), ".*")
                    self.assertTrue(any(re.fullmatch(pattern, got.rstrip()) for got in output),
                                    "%s: no line like %r in %r" % (command, wanted, output))
        finally:
            session.close()


if __name__ == "__main__":
    if not os.access(TESSELD, os.X_OK) or not os.access(TESSELCTL, os.X_OK):
        sys.exit("set TESSEL_BUILD_DIR to a build tree with bin/tesseld and bin/tesselctl")
    unittest.main(verbosity=2)
