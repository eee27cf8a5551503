# The Python package against real servers of this build. Arguments: the directory of the programs.
import asyncio
import gc
import json
import os
import resource
import subprocess
import sys
import threading
import time
import tracemalloc
import unittest
import weakref

import ptplib
from ptplib import _docs
from ptplib.types import Ptp
from support import ServerCase


class Values(unittest.TestCase):
    def setUp(self):
        self.config = Ptp.Config("ptp/config")

    def test_an_enumeration_is_an_IntEnum_with_the_numbers_of_the_standard(self):
        self.assertEqual(Ptp.PortState.slave, 9)
        self.assertEqual(str(Ptp.PortState.slave), "slave")
        self.config.ptpMode = Ptp.PtpMode.boundary
        self.assertIs(self.config.ptpMode, Ptp.PtpMode.boundary)
        self.config.ptpMode = "ordinary"
        self.assertIs(self.config.ptpMode, Ptp.PtpMode.ordinary)

    def test_a_number_without_a_name_stays_a_number(self):
        self.config.ptpMode = 77
        self.assertEqual(self.config.ptpMode, 77)
        self.assertIs(type(self.config.ptpMode), int)

    def test_an_enumerator_of_another_type_is_refused(self):
        with self.assertRaisesRegex(TypeError, "a value of Ptp::PtpMode cannot be made from Role"):
            self.config.ptpMode = Ptp.Role.dynamic

    def test_a_value_with_fields_is_a_named_tuple(self):
        self.assertEqual(self.config.clockQuality, (248, 254, 65535))
        self.config.clockQuality = self.config.clockQuality._replace(clockClass=6)
        self.assertEqual(self.config.clockQuality.clockClass, 6)
        self.config.clockQuality = {"clockClass": 7, "clockAccuracy": 33,
                                    "offsetScaledLogVariance": 1}
        self.assertEqual(self.config.clockQuality, (7, 33, 1))
        for wrong in ((1, 2), (1, 2, 3, 4), {"clockClass": 1}, 5):
            with self.assertRaises(TypeError):
                self.config.clockQuality = wrong
        self.assertEqual(self.config.clockQuality, (7, 33, 1))

    def test_an_optional_is_None_or_what_it_holds(self):
        boundary = self.config.intfRegionConfig.create(("Ethernet1", "none"))
        self.assertIsNone(boundary.networkSideDomainNumber)
        boundary.networkSideDomainNumber = 7
        boundary.lockTime = 2.5
        self.assertEqual((boundary.networkSideDomainNumber, boundary.lockTime), (7, 2.5))
        boundary.networkSideDomainNumber = None
        self.assertIsNone(boundary.networkSideDomainNumber)
        with self.assertRaisesRegex(ptplib.RangeError, "256 does not fit U8"):
            boundary.networkSideDomainNumber = 256

    def test_a_value_out_of_range_is_refused_with_the_bounds_and_stores_nothing(self):
        interface = self.config.intfConfig.create("Ethernet1", True, False)
        with self.assertRaises(ptplib.RangeError) as caught:
            interface.logSyncInterval = 99
        self.assertEqual(str(caught.exception), "ptp/config.intfConfig[Ethernet1].logSyncInterval: "
                         "99 is not allowed; the range is -7 to 17")
        self.assertIsInstance(caught.exception, ValueError)
        self.assertEqual(interface.logSyncInterval, 0)
        with self.assertRaisesRegex(ptplib.RangeError, r"^-1 does not fit U8 \(0 to 255\)$"):
            self.config.priority1 = -1
        with self.assertRaisesRegex(ptplib.RangeError, "does not fit U8"):
            self.config.priority1 = 10 ** 30

    def test_an_object_of_the_wrong_kind_is_refused(self):
        for name, value in (("priority1", 1.5), ("priority1", None), ("enabled", 1),
                            ("srcIp4", []), ("ptpMode", 1.0)):
            with self.assertRaises(TypeError, msg=name):
                setattr(self.config, name, value)
        with self.assertRaises(ptplib.ValueFault):
            self.config.priority1 = "x"

    def test_all_numbers_of_a_type_come_back(self):
        for value in (0, 1, 254, 255):
            self.config.priority1 = value
            self.assertEqual(self.config.priority1, value)
        interface = self.config.intfConfig.create("Ethernet1", True, False)
        for value in (0, 2 ** 63, 2 ** 64 - 1):
            interface.linkDelayThreshold = value
            self.assertEqual(interface.linkDelayThreshold, value)
        interface.clearCountersRequestTime = 1.25
        self.assertEqual(interface.clearCountersRequestTime, 1.25)

    def test_bytes_that_are_not_UTF_8_survive(self):
        name = b"a\xff".decode("utf-8", "surrogateescape")
        self.assertEqual(Ptp.Config(name).name, name)

    def test_an_unknown_attribute_is_refused(self):
        with self.assertRaises(AttributeError):
            self.config.priority3 = 1
        with self.assertRaises(AttributeError):
            self.config.priority3
        with self.assertRaisesRegex(AttributeError, "there is no type Ptp::Nothing"):
            Ptp.Nothing

    def test_a_fixed_member_is_refused(self):
        interface = self.config.intfConfig.create("Ethernet1", True, False)
        with self.assertRaisesRegex(AttributeError,
                                    "Ptp::IntfConfig.intf is fixed or derived: it cannot be set"):
            interface.intf = "Ethernet2"
        with self.assertRaisesRegex(AttributeError, "is a collection"):
            self.config.intfConfig = {}
        with self.assertRaisesRegex(AttributeError, "it cannot be removed"):
            del self.config.priority1

    def test_each_default_of_each_type_can_be_read_and_set(self):
        count = 0
        for name in ptplib._ptplib.typeNames():
            type_ = ptplib.typeOf(name)
            if type_.kind != "entity" or not type_.isRoot:
                continue
            root = type_.cls("r")
            for field in type_.fields:
                if field.kind == "single":
                    value = getattr(root, field.name)
                    if field.settable:
                        setattr(root, field.name, value)
                        self.assertEqual(getattr(root, field.name), value, field)
                    count += 1
        self.assertGreater(count, 80)


class Trees(unittest.TestCase):
    def setUp(self):
        self.config = Ptp.Config("ptp/config")
        self.interface = self.config.intfConfig.create("Ethernet1", enabled=True,
                                                       mpassEnabled=False)

    def test_children_are_a_mapping(self):
        children = self.config.intfConfig
        self.config.intfConfig.create("Ethernet2", True, False)
        self.assertEqual(len(children), 2)
        self.assertEqual(sorted(children), ["Ethernet1", "Ethernet2"])
        self.assertEqual(children["Ethernet1"], self.interface)
        self.assertEqual(dict(children.items())["Ethernet1"], self.interface)
        self.assertIn(self.interface, children.values())
        self.assertIn("Ethernet1", children)
        self.assertNotIn("Ethernet9", children)
        self.assertIsNone(children.get("Ethernet9"))
        with self.assertRaisesRegex(KeyError, "Ethernet9"):
            children["Ethernet9"]
        del children["Ethernet2"]
        self.assertEqual(list(children), ["Ethernet1"])
        children.clear()
        self.assertEqual(len(children), 0)

    def test_a_child_needs_what_its_type_is_given(self):
        for args, named in (((), {}), ((True,), {}), ((True, False, 3), {}),
                            ((True,), {"mpassEnabled": False, "x": 1})):
            with self.assertRaisesRegex(TypeError, r"enabled \(bool\), mpassEnabled \(bool\)"):
                self.config.intfConfig.create("Ethernet3", *args, **named)
        self.assertEqual(len(self.config.intfConfig), 1)

    def test_a_map_is_a_mutable_mapping(self):
        vlans = self.interface.vlanIds
        vlans[100] = True
        vlans["200"] = False
        self.assertEqual(len(vlans), 2)
        self.assertIs(vlans[100], True)
        self.assertIs(vlans.get(200), False)
        self.assertIn(200, vlans)
        del vlans[100]
        with self.assertRaises(KeyError):
            del vlans[100]
        self.assertEqual(len(dict(vlans)), 1)

    def test_a_removed_entity_raises_and_so_does_all_below_it(self):
        vlan = self.interface.vlanConfig.create(100)
        del self.config.intfConfig["Ethernet1"]
        for entity, read in ((self.interface, "enabled"), (vlan, "vlanId")):
            self.assertTrue(entity.removed)
            with self.assertRaisesRegex(ptplib.RemovedError, "has been removed from ptp/config"):
                getattr(entity, read)
        with self.assertRaises(ptplib.RemovedError):
            self.interface.enabled = False
        with self.assertRaises(ptplib.RemovedError):
            list(self.interface.vlanIds)
        self.assertFalse(self.config.removed)
        self.assertTrue(repr(self.interface))

    def test_a_child_keeps_its_tree(self):
        interface = Ptp.Config("other").intfConfig.create("Ethernet1", True, False)
        gc.collect()
        self.assertEqual(interface.path, "other.intfConfig[Ethernet1]")
        self.assertEqual(interface.root.name, "other")
        self.assertEqual(interface.parent, interface.root)
        self.assertIsNone(interface.root.parent)

    def test_paths_lead_where_those_of_ptpstate_lead(self):
        self.interface.logSyncInterval = -3
        self.assertEqual(self.config.at("intfConfig[Ethernet1].logSyncInterval"), -3)
        self.assertEqual(self.config.at("intfConfig[Ethernet1]"), self.interface)
        self.assertEqual(len(self.config.at("intfConfig")), 1)
        self.assertEqual(self.config.at("clockQuality.clockClass"), 248)
        with self.assertRaisesRegex(ptplib.Error, "priority3"):
            self.config.at("priority3")

    def test_json_is_that_of_dumps_and_diff_compares(self):
        other = Ptp.Config("ptp/config")
        other.intfConfig.create("Ethernet1", True, False)
        self.assertEqual(ptplib.diff(self.config, other), [])
        other.priority1 = 3
        self.assertEqual(ptplib.diff(self.config, other), [("ptp/config.priority1", "128", "3")])
        self.assertEqual(json.loads(other.json())["priority1"], 3)
        self.assertIn('\n  "priority1": 3', other.json(2))

    def test_another_thread_is_refused(self):
        caught = []
        changes = []
        observation = self.config.observe(changes.append)
        self.config.priority1 = 1
        uses = (lambda: self.config.priority1, lambda: changes[0].new, lambda: changes[0].path,
                observation.close)

        def use():
            for each in uses:
                try:
                    each()
                except RuntimeError as error:
                    caught.append(str(error))
        thread = threading.Thread(target=use)
        thread.start()
        thread.join()
        self.assertEqual(caught, ["the tree of ptp/config belongs to the thread that made it; no "
                                  "other may use it"] * len(uses))
        self.assertEqual(changes[0].new, 1)


class Observers(unittest.TestCase):
    def setUp(self):
        self.config = Ptp.Config("ptp/config")
        self.interface = self.config.intfConfig.create("Ethernet1", True, False)
        self.seen = []

    def note(self, change):
        self.seen.append((change.path, change.attribute, change.key, change.old, change.new))

    def test_a_callback_gets_path_attribute_key_old_and_new(self):
        self.config.observe(self.note)
        self.config.priority1 = 5
        self.interface.vlanIds[7] = True
        self.interface.vlanIds[7] = False
        del self.interface.vlanIds[7]
        key = self.seen[1][2]
        vlan = "ptp/config.intfConfig[Ethernet1].vlanIds[7]"
        self.assertEqual(self.seen, [
            ("ptp/config.priority1", "priority1", None, 128, 5),
            (vlan, "vlanIds", key, None, True),
            (vlan, "vlanIds", key, True, False),
            (vlan, "vlanIds", key, False, None)])

    def test_an_observer_hears_only_what_it_asked_for(self):
        with self.config.observe(self.note, below=False):
            self.interface.logSyncInterval = 1
            self.config.priority1 = 1
        self.config.priority1 = 2
        with self.config.observe(self.note, attributes="logSyncInterval"):
            self.interface.logSyncInterval = 2
            self.config.priority1 = 3
        self.assertEqual([seen[0] for seen in self.seen], [
            "ptp/config.priority1", "ptp/config.intfConfig[Ethernet1].logSyncInterval"])

    def test_a_callback_may_end_its_own_observation(self):
        def once(change):
            self.note(change)
            observation.close()
        observation = self.config.observe(once)
        self.config.priority1 = 1
        self.config.priority1 = 2
        self.assertEqual(len(self.seen), 1)

    def test_what_a_callback_raises_comes_out_of_the_setter_and_others_are_told(self):
        def fail(change):
            raise KeyError("mine")
        self.config.observe(fail)
        self.config.observe(self.note)
        with self.assertRaisesRegex(KeyError, "mine"):
            self.config.priority1 = 1
        self.assertEqual(self.config.priority1, 1)
        self.assertEqual(len(self.seen), 1)

    def test_a_callback_may_remove_the_entity_that_has_changed(self):
        def remove(change):
            self.note(change)
            if change.attribute == "logSyncInterval":
                del self.config.intfConfig["Ethernet1"]
        self.config.observe(remove)
        self.interface.logSyncInterval = 3
        self.assertTrue(self.interface.removed)
        self.assertEqual(len(self.seen), 2)

    def test_async_for_follows_a_root_of_this_process(self):
        async def follow():
            changes = self.config.changes(attributes="priority1")
            asyncio.get_running_loop().call_later(
                0.01, lambda: setattr(self.config, "priority1", 9))
            async for change in changes:
                changes.close()
                return change.path, change.old, change.new
        self.assertEqual(asyncio.run(asyncio.wait_for(follow(), 10)),
                         ("ptp/config.priority1", 128, 9))

    def test_an_iterator_that_is_dropped_observes_no_more(self):
        changes = self.config.changes()
        self.config.priority1 = 4
        self.assertEqual(next(changes).new, 4)
        self.assertEqual(len(self.config._tree.observers), 1)
        del changes
        self.assertEqual(len(self.config._tree.observers), 0)
        self.assertEqual(list(self.config.changes()), [])

    def test_a_tree_whose_callback_refers_to_it_is_collected(self):
        def make():
            config = Ptp.Config("c")
            config.observe(lambda change: config.priority1)
            config.priority1 = 1
            return weakref.ref(next(iter(config._tree.observers)))
        gc.collect()
        alive = [make() for _ in range(100)]
        gc.collect()
        self.assertEqual([ref() for ref in alive if ref() is not None], [])


class Mirrors(ServerCase):
    def test_a_mirror_reads_what_the_server_has(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        self.run_ptpstate("set", "--socket", self.socket, "ptp/config.domainNumber", "24")
        with ptplib.connect(self.socket) as client:
            self.assertEqual(client.roots(), [("Ptp::Config", "ptp/config")])
            config = client.mirror("ptp/config", Ptp.Config)
            self.assertIsInstance(config, Ptp.Config)
            self.assertEqual(config.domainNumber, 24)
            self.assertEqual(client.mirror("ptp/config"), config)
            with self.assertRaisesRegex(ptplib.ReadOnlyError, "mirrored for reading"):
                config.domainNumber = 3
            with self.assertRaisesRegex(ptplib.ReadOnlyError, "mirrored for reading"):
                config.intfConfig.create("Ethernet1", True, False)
            with self.assertRaisesRegex(ptplib.Error, "there is no root nothing; there are: ptp/"):
                client.mirror("nothing")

    def test_a_writer_changes_the_server_and_sees_what_others_change(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        with ptplib.connect(self.socket) as client, ptplib.connect(self.socket) as other:
            writer = client.mirror("ptp/config", mode="write")
            reader = other.mirror("ptp/config")
            seen = []
            reader.observe(lambda change: seen.append((change.path, change.new)))
            writer.intfConfig.create("Ethernet1", True, False).logSyncInterval = -2
            client.sync()
            other.sync()
            self.assertEqual(reader.intfConfig["Ethernet1"].logSyncInterval, -2)
            self.assertEqual(seen[-1],
                             ("ptp/config.intfConfig[Ethernet1].logSyncInterval", -2))
            self.assertEqual(ptplib.diff(writer, reader), [])
            gone = reader.intfConfig["Ethernet1"]
            del writer.intfConfig["Ethernet1"]
            client.sync()
            other.sync()
            with self.assertRaises(ptplib.RemovedError):
                gone.logSyncInterval

    def test_leaving_the_block_sends_what_was_written(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        with ptplib.connect(self.socket) as client:
            client.mirror("ptp/config", mode="write").priority1 = 77
        self.assertEqual(self.run_ptpstate("get", "--socket", self.socket,
                                           "ptp/config.priority1").strip().split()[-1], "77")

    def test_a_claimed_root_refuses_other_writers(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        with ptplib.connect(self.socket) as first, ptplib.connect(self.socket) as second:
            first.mirror("ptp/config", mode="claim")
            with self.assertRaisesRegex(ptplib.Error, "the server accepts no changes from here"):
                second.mirror("ptp/config", mode="write")

    def test_a_server_that_ends_raises_with_its_reason(self):
        server = self.serve("--root", "Ptp::Config=ptp/config")
        client = ptplib.connect(self.socket)
        config = client.mirror("ptp/config")
        server.terminate()
        with self.assertRaisesRegex(ptplib.ConnectionLost, "the connection is lost: "):
            while client.wait(10):
                pass
        self.assertEqual(config.priority1, 128)  # the mirror stays
        self.assertTrue(client.closed)
        with self.assertRaises(ptplib.ConnectionLost):
            ptplib.connect(self.socket + ".none", timeout=0.2)

    def test_for_and_wait_follow_an_agent_and_end_in_time(self):
        self.agent("--ports", "4")
        with ptplib.connect(self.socket) as client:
            status = client.mirror("ptp/status")
            self.assertIsInstance(status.portDS["Ethernet1"].portState, Ptp.PortState)
            changes = []
            for change in status.changes(timeout=20):
                changes.append(change)
                if len(changes) == 20:
                    break
            self.assertEqual(len(changes), 20)
            begin = time.monotonic()
            self.assertEqual(list(status.changes(attributes="nothing", timeout=0.3)), [])
            self.assertLess(time.monotonic() - begin, 10)

    def test_async_for_follows_a_server(self):
        self.agent("--ports", "4")

        async def follow():
            client = ptplib.connect(self.socket)
            status = client.mirror("ptp/status")
            paths = []
            async with status.changes() as changes:
                async for change in changes:
                    paths.append(change.path)
                    if len(paths) == 50:
                        break
            client.close()
            return paths
        paths = asyncio.run(asyncio.wait_for(follow(), 30))
        self.assertEqual(len(paths), 50)
        self.assertTrue(all(path.startswith("ptp/status.") for path in paths))

    def test_async_for_raises_when_the_server_ends(self):
        server = self.serve("--root", "Ptp::Config=ptp/config")

        async def follow():
            with ptplib.connect(self.socket) as client:
                config = client.mirror("ptp/config")
                asyncio.get_running_loop().call_later(0.05, server.terminate)
                async for _ in config.changes():
                    pass
        with self.assertRaisesRegex(ptplib.ConnectionLost, "the connection is lost"):
            asyncio.run(asyncio.wait_for(follow(), 20))

    def test_a_slow_consumer_is_bounded_and_ends_with_the_latest(self):
        self.serve("--root", "Ptp::Config=ptp/config")

        async def follow():
            with ptplib.connect(self.socket) as client, ptplib.connect(self.socket) as source:
                writer = source.mirror("ptp/config", mode="write")
                config = client.mirror("ptp/config")
                changes = config.changes()
                most = 0
                for i in range(60_000):
                    writer.priority1 = i % 256
                    if i % 500 == 499:
                        source.sync()
                        client.follow()
                        await asyncio.sleep(0)
                        most = max(most, len(changes._queue))
                writer.domainNumber = 5
                source.sync()
                last = None
                async for change in changes:
                    last = change
                    if change.attribute == "domainNumber":
                        break
                return most, last.new
        most, last = asyncio.run(asyncio.wait_for(follow(), 120))
        # Up to the bound, and what one turn of the connection brings: 256 KiB of messages.
        self.assertLess(most, 10_000 + (1 << 18) // 11 + 1)
        self.assertGreaterEqual(most, 10_000)
        self.assertEqual(last, 5)

    def test_what_an_observer_raises_comes_out_of_wait_and_the_rest_is_applied(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        with ptplib.connect(self.socket) as client, ptplib.connect(self.socket) as source:
            config = client.mirror("ptp/config")
            writer = source.mirror("ptp/config", mode="write")

            def fail(change):
                raise ArithmeticError(change.path)
            config.observe(fail, attributes="priority1")
            writer.priority1 = 1
            writer.priority2 = 2
            source.sync()
            with self.assertRaisesRegex(ArithmeticError, "ptp/config.priority1"):
                client.sync()
            client.sync()
            self.assertEqual((config.priority1, config.priority2), (1, 2))

    def test_an_interrupt_ends_a_wait(self):
        self.serve("--root", "Ptp::Config=ptp/config")
        code = ("import ptplib, sys\nclient = ptplib.connect(sys.argv[1])\n"
                "client.mirror('ptp/config')\nprint('waiting', flush=True)\n"
                "try:\n    client.wait()\nexcept KeyboardInterrupt:\n    print('interrupted')\n")
        process = subprocess.Popen([sys.executable, "-c", code, self.socket],
                                   stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.assertEqual(process.stdout.readline(), "waiting\n")
        time.sleep(0.1)
        process.send_signal(2)
        self.assertEqual(process.stdout.read(), "interrupted\n")
        self.assertEqual(process.wait(10), 0)

    def test_a_thousand_connections_and_observers_leak_nothing(self):
        self.serve("--root", "Ptp::Config=ptp/config")

        def once():
            with ptplib.connect(self.socket) as client:
                config = client.mirror("ptp/config")
                seen = []
                config.observe(lambda change: seen.append((config, change)))
                changes = config.changes()
                client.poll()
                self.assertEqual(config.priority1, 128)
                changes.close()

        def memory():
            gc.collect()
            return tracemalloc.get_traced_memory()[0]
        for _ in range(100):
            once()
        tracemalloc.start()
        self.addCleanup(tracemalloc.stop)
        before = memory()
        resident = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
        files = len(os.listdir("/proc/self/fd"))
        for _ in range(1000):
            once()
        gc.collect()
        self.assertLess(memory() - before, 100_000)
        self.assertLess(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - resident, 16_000)
        self.assertEqual(len(os.listdir("/proc/self/fd")), files)

    def test_references_are_balanced(self):
        config = Ptp.Config("c")
        interface = config.intfConfig.create("Ethernet1", True, False)
        none, enumerator = sys.getrefcount(None), sys.getrefcount(Ptp.PtpMode.disabled)
        for _ in range(10_000):
            config.ptpMode, config.clockQuality, interface.parent, config.parent, interface.intf
            config.priority1 = 5
            try:
                config.priority1 = 500
            except ptplib.RangeError:
                pass
        self.assertLess(abs(sys.getrefcount(None) - none), 100)
        self.assertLess(abs(sys.getrefcount(Ptp.PtpMode.disabled) - enumerator), 100)


class Recordings(ServerCase):
    def record(self):
        path = os.path.join(self.dir, "demo.ptp")
        self.agent("--ports", "4")
        self.run_ptpstate("record", "--socket", self.socket, "--for", "3", path)
        return path

    def test_a_recording_gives_the_series_that_its_changes_give(self):
        path = self.record()
        recording = ptplib.Recording(path)
        offset = "ptp/status.currentDS.offsetFromMaster"
        self.assertEqual(recording.roots()["ptp/status"].type.name, "Ptp::Status")
        changes = [(t, change.new) for t, change in recording.changes()
                   if change.path == offset]
        series = recording.series(offset)
        self.assertEqual(series[1:], changes)
        self.assertGreaterEqual(len(series), 2)
        middle = series[1][0]
        until = [entry for entry in series if entry[0] <= middle]
        self.assertEqual(recording.series(offset, until=middle), until)
        self.assertEqual(recording.series(offset, since=middle + 1e-6),
                         [(middle + 1e-6, until[-1][1]), *series[len(until):]])
        with self.assertRaisesRegex(ptplib.Error, "is not a path below a root"):
            recording.series("nothing.x")

    def test_a_damaged_recording_gives_what_is_before_the_damage(self):
        path = self.record()
        with open(path, "r+b") as file:
            file.seek(os.path.getsize(path) - 20)
            file.write(b"\xff" * 8)
        count = 0
        with self.assertRaisesRegex(ptplib.RecordingError, "damaged at byte"):
            for _ in ptplib.Recording(path).changes():
                count += 1
        self.assertGreater(count, 0)
        with self.assertRaisesRegex(ptplib.RecordingError, "there is no such recording"):
            ptplib.Recording(path + ".none")


class Help(unittest.TestCase):
    def test_help_tells_comment_type_and_range(self):
        doc = Ptp.IntfConfig.logSyncInterval.__doc__
        self.assertEqual(doc, "Base-2 logarithm of the mean Sync interval in seconds (IEEE "
                              "1588-2008, 7.7.2.3).\n\nS16 from -7 to 17")
        self.assertIn("9  slave: ", Ptp.PortState.__doc__)
        self.assertIn("Traceability of the time", Ptp.ClockQuality.__doc__)
        self.assertIn("portState", dir(Ptp.PortDS))

    def test_every_type_and_member_has_a_comment(self):
        for name in ptplib._ptplib.typeNames():
            type_ = ptplib.typeOf(name)
            self.assertTrue(_docs.of(name), name)
            inherited = {field.name for field in type_.base.fields} if type_.base else set()
            for field in type_.fields:
                if field.name not in inherited:
                    self.assertTrue(_docs.of(name, field.name),
                                    f"{name}.{field.name}")

    def test_mypy_accepts_the_stubs_and_finds_mistakes(self):
        try:
            import mypy.api
        except ImportError:
            self.skipTest("mypy is missing; Debian has it")
        import tempfile
        with tempfile.TemporaryDirectory() as directory:
            script = os.path.join(directory, "typed.py")
            with open(script, "w", encoding="utf-8") as file:
                file.write("import ptplib\nfrom ptplib.types import Ptp\n"
                           "config = ptplib.connect('x').mirror('ptp/config', Ptp.Config)\n"
                           "config.priority1 = 3\n"
                           "config.intfConfig['Ethernet1'].role = Ptp.Role.dynamic\n"
                           "config.priority1 = 'x'\n"
                           "config.priority3 = 1\n"
                           "config.intfConfig['Ethernet1'].intf = 'x'\n")
            os.environ["MYPYPATH"] = os.path.dirname(os.path.dirname(ptplib.__file__))
            out, err, status = mypy.api.run(["--strict", "--cache-dir", directory, script])
        self.assertEqual(err, "")
        found = [line.split("typed.py:")[-1].split(" error:")[0] for line in out.splitlines()
                 if "error:" in line]
        self.assertEqual(found, ["6:", "7:", "8:"], out)
        self.assertEqual(status, 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
