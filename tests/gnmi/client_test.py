#!/usr/bin/python3
"""client_test.py BIN: a client in another language, against the programs in BIN.

Checks the semantics as Python sees them, TLS, and the bytes against the published declaration in
$PTPLIB_GNMI_PROTO_DIR."""
import os
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

try:
    import grpc
    from client import SOURCE, Client, gnmi, path, subscription, text
except ImportError as missing:
    print("skipped: needs python3-grpcio and python3-protobuf:", missing)
    sys.exit(77)

BIN = os.path.abspath(sys.argv.pop(1))
ONCE, POLL, STREAM = (gnmi.SubscriptionList.ONCE, gnmi.SubscriptionList.POLL,
                      gnmi.SubscriptionList.STREAM)


class Running:
    """A program, until the end of the test."""

    def __init__(self, *command, until=None):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        text=True)
        self.lines = []
        for line in self.process.stdout if until else []:
            self.lines.append(line)
            if until in line:
                break
        else:
            if until:
                raise AssertionError("%s ended: %s" % (command[0], "".join(self.lines)))
        threading.Thread(target=self.process.stdout.read, daemon=True).start()

    def stop(self):
        self.process.terminate()
        self.process.wait(10)


def start(directory, *options, agent=("demoAgent",)):
    socket = os.path.join(directory, "socket")
    source = Running(os.path.join(BIN, agent[0]), *agent[1:], "--socket", socket, until="serving")
    server = Running(os.path.join(BIN, "ptpgnmi"), "--socket", socket, "--listen", "127.0.0.1:0",
                     *options, until="listening at")
    port = re.search(r"127\.0\.0\.1:(\d+)", server.lines[-1]).group(1)
    return source, server, "127.0.0.1:" + port


class GnmiTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.mkdtemp(prefix="ptpgnmi-test-")
        cls.source, cls.server, address = start(cls.directory, "--insecure")
        cls.client = Client(grpc.insecure_channel(address))
        for _ in range(100):
            try:
                cls.client.get(gnmi.GetRequest(path=[path("/tree/enabled")], encoding=gnmi.PROTO))
                break
            except grpc.RpcError as error:
                if error.code() != grpc.StatusCode.UNAVAILABLE:
                    raise
                time.sleep(0.1)

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()
        cls.source.stop()
        shutil.rmtree(cls.directory)

    def refused(self, call):
        with self.assertRaises(grpc.RpcError) as caught:
            call()
        return caught.exception.code(), caught.exception.details()

    def test_capabilities(self):
        said = self.client.capabilities(gnmi.CapabilityRequest())
        self.assertEqual([m.name for m in said.supported_models], ["ptplib", "openconfig-ptp"])
        self.assertEqual(list(said.supported_encodings), [gnmi.JSON, gnmi.PROTO, gnmi.JSON_IETF])

    def test_get_of_a_pattern(self):
        said = self.client.get(gnmi.GetRequest(path=[path("/tree/portDS[key=*]/portState")],
                                               encoding=gnmi.PROTO))
        found = {text(u.path): u.val.string_val for u in said.notification[0].update}
        self.assertEqual(len(found), 64)
        self.assertEqual(found["/tree[name=ptp/status]/portDS[key=Ethernet1]/portState"], "slave")

    def test_set_is_refused(self):
        code, _ = self.refused(lambda: self.client.set(gnmi.SetRequest()))
        self.assertEqual(code, grpc.StatusCode.UNIMPLEMENTED)

    def test_errors_name_the_path(self):
        for asked, code in (("/tree/portDS/portStat", grpc.StatusCode.INVALID_ARGUMENT),
                            ("/tree[name=none]", grpc.StatusCode.NOT_FOUND)):
            said = self.refused(lambda: self.client.get(
                gnmi.GetRequest(path=[path(asked)], encoding=gnmi.PROTO)))
            self.assertEqual(said[0], code)
            self.assertIn(asked, said[1])

    def test_once_is_what_get_says(self):
        asked = "/tree/portDS/logSyncInterval"
        said = self.client.get(gnmi.GetRequest(path=[path(asked)], encoding=gnmi.PROTO))
        got = sorted(text(u.path) for u in said.notification[0].update)
        *updates, sync = self.client.subscribe(iter([subscription([asked], ONCE)]))
        self.assertTrue(sync.sync_response)
        self.assertEqual(sorted(text(u.path) for m in updates for u in m.update.update), got)

    def test_poll(self):
        asked = queue.Queue()
        asked.put(subscription(["/tree/enabled"], POLL))
        stream = self.client.subscribe(iter(asked.get, None))
        for _ in range(3):
            self.assertEqual(len(next(stream).update.update), 1)
            self.assertTrue(next(stream).sync_response)
            asked.put(gnmi.SubscribeRequest(poll=gnmi.Poll()))
        asked.put(None)

    def test_changes_are_streamed(self):
        asked = queue.Queue()
        asked.put(subscription(["/tree/portDS/syncMessageReceived"], STREAM))
        stream = self.client.subscribe(iter(asked.get, None), timeout=20)
        first = {}
        for message in stream:
            if message.sync_response:
                break
            first.update((text(u.path), u.val.uint_val) for u in message.update.update)
        self.assertEqual(len(first), 64)
        changed = next(stream).update
        for update in changed.update:
            self.assertGreater(update.val.uint_val, first[text(update.path)])
        self.assertLess(abs(changed.timestamp / 1e9 - time.time()), 5)
        stream.cancel()

    def test_the_published_declaration_has_the_same_bytes(self):
        published = os.environ.get("PTPLIB_GNMI_PROTO_DIR")
        if not published:
            self.skipTest("PTPLIB_GNMI_PROTO_DIR does not name the published gnmi.proto")
        below = os.path.join(self.directory, "published")
        ext = os.path.join(below, "github.com/openconfig/gnmi/proto/gnmi_ext")
        os.makedirs(ext)
        shutil.copy(os.path.join(published, "gnmi_ext.proto"), ext)
        shutil.copy(os.path.join(published, "gnmi.proto"), below)
        ours = [SOURCE, "tools/ptpgnmi/gnmi.proto"]
        theirs = [below, "gnmi.proto"]

        def protoc(where, mode, message, data):
            return subprocess.run(["protoc", "-I" + where[0], "--%s=gnmi.%s" % (mode, message),
                                   where[1]], cwd=where[0], input=data, check=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE).stdout

        p = ('origin: "o" target: "t" element: "e" elem { name: "a" key { key: "k" value: "v" } }')
        values = ['string_val: "s"', "int_val: -5", "uint_val: 5", "bool_val: true",
                  'bytes_val: "b"', "float_val: 1.5", "decimal_val { digits: 5 precision: 1 }",
                  "leaflist_val { element { int_val: 1 } }", 'any_val { type_url: "x" }',
                  'json_val: "1"', 'json_ietf_val: "2"', 'ascii_val: "a"', 'proto_bytes: "p"',
                  "double_val: 0.1"]
        updates = "".join('update { path { %s } value { value: "x" type: PROTO } val { %s } '
                          "duplicates: 3 } " % (p, v) for v in values)
        notification = "timestamp: 7 prefix { %s } %s delete { %s } atomic: true" % (p, updates, p)
        extension = "extension { history { snapshot_time: 9 } } extension { depth { level: 2 } } " \
                    'extension { registered_ext { id: EID_EXPERIMENTAL msg: "m" } } extension { ' \
                    'master_arbitration { role { id: "r" } election_id { high: 1 low: 2 } } } ' \
                    "extension { history { range { start: 1 end: 2 } } }"
        models = 'use_models { name: "n" organization: "o" version: "v" }'
        lists = ["prefix { %s } subscription { path { %s } mode: %s sample_interval: 5 "
                 "suppress_redundant: true heartbeat_interval: 6 } qos { marking: 3 } mode: %s "
                 "allow_aggregation: true %s encoding: %s updates_only: true"
                 % (p, p, each, mode, models, encoding)
                 for each, mode, encoding in (("ON_CHANGE", "ONCE", "JSON_IETF"),
                                              ("SAMPLE", "POLL", "ASCII"),
                                              ("TARGET_DEFINED", "STREAM", "BYTES"))]
        error = 'error { code: 3 message: "m" }'
        samples = [("Notification", notification),
                   *(("SubscribeRequest", "subscribe { %s } %s" % (l, extension)) for l in lists),
                   ("SubscribeRequest", "poll {}"),
                   ("SubscribeResponse", "update { %s } %s" % (notification, extension)),
                   ("SubscribeResponse", "sync_response: true"), ("SubscribeResponse", error),
                   ("GetRequest", "prefix { %s } path { %s } type: OPERATIONAL encoding: PROTO %s %s"
                    % (p, p, models, extension)),
                   ("GetResponse", "notification { %s } %s %s" % (notification, error, extension)),
                   ("CapabilityRequest", extension),
                   ("CapabilityResponse", "supported_%s supported_encodings: [JSON, JSON_IETF] "
                    'gNMI_version: "1" %s' % (models[4:], extension)),
                   ("SetRequest", "prefix { %s } delete { %s } replace { path { %s } } update { "
                    "path { %s } } union_replace { path { %s } } %s" % (p, p, p, p, p, extension)),
                   ("SetResponse", 'prefix { %s } response { timestamp: 1 path { %s } message { '
                    'code: 1 } op: UNION_REPLACE } message { code: 2 } timestamp: 4 %s'
                    % (p, p, extension))]
        for message, sample in samples:
            written = protoc(ours, "encode", message, sample.encode())
            self.assertTrue(message == "SubscribeRequest" or written)
            self.assertEqual(written, protoc(theirs, "encode", message, sample.encode()), message)
            self.assertEqual(protoc(ours, "decode", message, written),
                             protoc(theirs, "decode", message, written), message)
        # What the server itself sends, read by theirs.
        said = self.client.get(gnmi.GetRequest(path=[path("/tree/currentDS")],
                                               encoding=gnmi.PROTO)).SerializeToString()
        self.assertEqual(protoc(theirs, "decode", "GetResponse", said),
                         protoc(ours, "decode", "GetResponse", said))


class TlsTest(unittest.TestCase):
    def setUp(self):
        if not shutil.which("openssl"):
            self.skipTest("needs openssl")
        self.directory = tempfile.mkdtemp(prefix="ptpgnmi-tls-")
        self.addCleanup(shutil.rmtree, self.directory)
        for name in ("server", "client", "stranger"):
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                            "-subj", "/CN=" + name, "-addext", "subjectAltName=DNS:localhost",
                            "-keyout", self.file(name + ".key"), "-out", self.file(name + ".pem")],
                           check=True, stderr=subprocess.DEVNULL)

    def file(self, name):
        return os.path.join(self.directory, name)

    def read(self, name):
        with open(self.file(name), "rb") as file:
            return file.read()

    def serve(self, *more):
        source, server, address = start(self.directory, "--tls-cert", self.file("server.pem"),
                                        "--tls-key", self.file("server.key"), *more)
        self.addCleanup(source.stop)
        self.addCleanup(server.stop)
        return address

    def capabilities(self, address, who=None):
        pair = (self.read(who + ".key"), self.read(who + ".pem")) if who else (None, None)
        credentials = grpc.ssl_channel_credentials(self.read("server.pem"), *pair)
        with grpc.secure_channel(address, credentials,
                                 [("grpc.ssl_target_name_override", "localhost")]) as channel:
            return Client(channel).capabilities(gnmi.CapabilityRequest(), timeout=5).gNMI_version

    def test_tls_serves_who_trusts_the_server_and_nobody_without_tls(self):
        address = self.serve()
        self.assertEqual(self.capabilities(address), "0.10.0")
        with grpc.insecure_channel(address) as channel, self.assertRaises(grpc.RpcError):
            Client(channel).capabilities(gnmi.CapabilityRequest(), timeout=3)

    def test_mutual_tls_serves_only_clients_of_its_authority(self):
        address = self.serve("--tls-client-ca", self.file("client.pem"))
        self.assertEqual(self.capabilities(address, "client"), "0.10.0")
        for who in ("stranger", None):
            with self.assertRaises(grpc.RpcError):
                self.capabilities(address, who)

    def test_without_a_certificate_or_insecure_it_does_not_start(self):
        said = subprocess.run([os.path.join(BIN, "ptpgnmi"), "--socket", self.file("socket")],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              timeout=10)
        self.assertEqual(said.returncode, 2)
        self.assertIn("--insecure", said.stdout)


if __name__ == "__main__":
    unittest.main(verbosity=2)
