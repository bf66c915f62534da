"""mosquitto as a real process, with a session store that outlives a kill."""

import getpass
import os
import pathlib
import signal
import socket
import ssl
import subprocess
import time

import paho.mqtt.client as mqtt

from bench.processes import BenchError, Process, free_port

ATTEMPTS = 10
PUBLISH_S = 20
STORE_S = 10
JOB_TOPIC = "RUNA-TruststoreUpdate.CTTSCJobKORB1"
USERNAME = "bench"
PASSWORD = "bench-password"


class Broker:
    """One listener of loopback, plain or with TLS, open or with a password. Any one thread at a time.

    The port stays the same from start to start. What was published is stored: a kill does not lose it.
    """

    def __init__(self, pki, folder, log, *, tls=False, password=False, port=0):
        self.tls = tls
        self.password = password
        self.port = port
        self._pki = pki
        self._folder = pathlib.Path(folder)
        self._log = log
        self._process = Process("broker", self._folder / "mosquitto.log")

    @property
    def pid(self):
        return self._process.pid

    def running(self):
        return self._process.running()

    def start(self):
        if self.running():
            raise BenchError("broker runs already")
        for _ in range(ATTEMPTS if self.port == 0 else 1):
            port = self.port or free_port()
            self._write_configuration(port)
            if self._process.start(["/usr/sbin/mosquitto", "-c", self._folder / "mosquitto.conf"],
                                   lambda p=port: _listens(p)):
                self.port = port
                self._log.write("broker", "started")
                return
        raise BenchError(f"mosquitto does not start; see {self._process.output_path}")

    def close(self):
        """The end of the bench."""
        if self.running():
            os.kill(self.pid, signal.SIGCONT)
        self._process.stop()

    def stop(self):
        if self.running():
            self._process.stop()
            self._log.write("broker", "stopped")

    def kill(self):
        self._process.kill()
        self._log.write("broker", "killed")

    def freeze(self):
        """From here on it takes connections and says nothing, until `thaw`."""
        if not self.running():
            raise BenchError("broker does not run")
        os.kill(self.pid, signal.SIGSTOP)
        os.waitid(os.P_PID, self.pid, os.WSTOPPED)
        self._log.write("broker", "frozen")

    def thaw(self):
        if not self.running():
            raise BenchError("broker does not run")
        os.kill(self.pid, signal.SIGCONT)
        self._log.write("broker", "thawed")

    def restart(self):
        self.stop()
        self.start()

    def publish(self, payload, topic=JOB_TOPIC, *, retain=False):
        """Publishes with QoS 1 and waits for the broker's word; retained, for those that subscribe later, too. Raises
        BenchError when that does not come."""
        client = self._client()
        try:
            client.connect("127.0.0.1", self.port)
            client.loop_start()
            message = client.publish(topic, payload, qos=1, retain=retain)
            message.wait_for_publish(PUBLISH_S)
            if not message.is_published():
                raise BenchError("the broker does not take the message")
        except OSError as error:
            raise BenchError(f"broker: {error}") from None
        finally:
            client.disconnect()
            client.loop_stop()
        self._store()

    def _store(self):
        """Has sessions and messages written: mosquitto acknowledges first and writes later."""
        database = self._folder / "mosquitto.db"
        before = database.stat().st_mtime_ns if database.exists() else None
        os.kill(self.pid, signal.SIGUSR1)
        deadline = time.monotonic() + STORE_S
        while not database.exists() or database.stat().st_mtime_ns == before:
            if time.monotonic() > deadline or not self.running():
                raise BenchError(f"mosquitto does not write {database}")
            time.sleep(0.02)

    def _client(self):
        client = mqtt.Client()
        if self.password:
            client.username_pw_set(USERNAME, PASSWORD)
        if self.tls:
            client.tls_set(str(self._pki.path("server-ca")), tls_version=ssl.PROTOCOL_TLS_CLIENT)
        return client

    def _write_configuration(self, port):
        lines = [f"user {getpass.getuser()}", f"listener {port} 127.0.0.1", "log_type all",
                 "log_timestamp_format %H:%M:%S", "persistence true", f"persistence_location {self._folder}/",
                 "persistence_file mosquitto.db", "autosave_on_changes true", "autosave_interval 1"]
        if self.tls:
            self._pki.server_context()
            lines += [f"cafile {self._pki.path('server-ca')}", f"certfile {self._pki.path('server')}",
                      f"keyfile {self._pki.key_path('server')}"]
        if self.password:
            passwords = self._folder / "mosquitto.passwords"
            subprocess.run(["mosquitto_passwd", "-b", "-c", str(passwords), USERNAME, PASSWORD], check=True,
                           capture_output=True)
            lines.append(f"password_file {passwords}")
        lines.append(f"allow_anonymous {'false' if self.password else 'true'}")
        (self._folder / "mosquitto.conf").write_text("".join(line + "\n" for line in lines))


def _listens(port):
    try:
        socket.create_connection(("127.0.0.1", port), 1).close()
    except OSError:
        return False
    # Somebody else may have been quicker to take the port; mosquitto ends then.
    time.sleep(0.05)
    return True
