# What can break here: a hub, or a peer behind it, that says nonsense. Whatever it says, the process goes on, nothing waits for
# ever, and a worker whose hub cannot be read any more says why.
import asyncio
import struct
import unittest.mock

import msgpack
import skyfold_core
from support import AsyncTest, PlayedHub, frame, message, raw

# What ends the connection, and a word of why.
FATAL = {
    "an empty frame": (raw(b""), "frame of 0 bytes"),
    "a frame of 2 GiB": (struct.pack("<I", 1 << 31), "frame of 2147483648 bytes"),
    "no MessagePack": (raw(b"\xc1"), "no MessagePack"),
    "half a value": (raw(b"\x82\x01\x02"), "no MessagePack"),
    "two values": (raw(b"\x81\x01\x02\xc0"), "no MessagePack"),
    "nesting without end": (raw(b"\x91" * 100_000 + b"\xc0"), "no MessagePack"),
    "an array that lies": (raw(b"\xdd\xff\xff\xff\xff"), "no MessagePack"),
    "arrays in arrays that lie": (raw(b"\xdd\x00\x80\x00\x00" * 1000 + b"\xc0" * (8 << 20)), "no MessagePack"),
    "too many values": (raw(b"\xdd\x00\x03\x00\x00" + b"\x80" * 0x30000), "exceeds"),
    "too many in parts": (raw(b"\x94" + 4 * (b"\xdd\x00\x00\xc0\x00" + b"\x80" * 0xC000)), "than 100000 values"),
    "a map that lies": (raw(b"\xdf\xff\xff\xff\xff"), "no MessagePack"),
    "a key that has no hash": (raw(b"\x81\x91\x01\x02"), "no MessagePack"),
    "a field twice": (raw(b"\x82\x01\x02\x01\x02"), "twice"),
}

# What is passed over: field by field of another kind, too large, or missing.
HARMLESS = [raw(b"\xde\x00\x01\xa1\xff\x01")] + [  # A map in another form, whose key is no text.
    frame(value)
    for value in (
        *(1, "x", [1], {}, {1: "x"}, {1: [1]}, {1: 99}, {1: -1}, {1: 1}, {1: 1, 4: 0xFFFF}, {1: 1, 4: 7}, {1: 1, 4: 1 << 40}),
        *({1: 6, **fields} for fields in ({}, {5: 3, 10: 1}, {5: 3, 10: -1}, {5: 3, 10: 1 << 40}, {5: "x", 10: 1}, {5: 1.5, 10: 1})),
        *({1: 7}, {1: 7, 4: 3}, {1: 7, 4: "x"}, {1: 7, 4: 70000}, {1: 9}, {1: 9, 4: 3}, {1: 9, 4: []}),
        *({1: 4}, {1: 4, 5: 0}, {1: 4, 5: 0, 6: 0}, {1: 4, 5: 0, 6: 0, 8: "text", 9: {}}, {1: 4, 5: 0, 6: 0, 8: b"", 9: {}}),
        *({1: 4, 5: 0, 6: 0, 8: b"\x80", 9: objects} for objects in (5, {"x": 1, -1: 2, 1.5: 3})),
        {1: 4, 5: -1, 6: 0, 8: b"\x80"},
    )
] + [
    message(0, 3, payload, source=0)
    for payload in (
        *(b"\xc1", b"\x81", b"\x91" * 5000, 5, [], {"TYPE": 5}, {"TYPE": "NEWS"}, {"TYPE": "EVENT"}, {"TYPE": "CALL_RESPONSE"}),
        *({"TYPE": "CALL_RESPONSE", "REQUEST_ID": []}, {"TYPE": "CALL_ERROR", "REQUEST_ID": "x"}, {"TYPE": "EVENT", "EVENT_NAME": {}}),
        {"TYPE": "EVENT", "ARGUMENT": msgpack.ExtType(1, b"short")},
    )
]


class HostileHubTest(AsyncTest):
    async def test_what_cannot_be_read_ends_the_connection_and_all_that_waits_and_says_why(self) -> None:
        for name, (bad, why) in FATAL.items():
            with self.subTest(name), unittest.mock.patch("skyfold_core.wire.MOST_VALUES", 100_000):
                async with PlayedHub() as hub:
                    worker = await skyfold_core.connect(hub.path)
                    finding = asyncio.ensure_future(worker.find("Greeter"))
                    await hub.barrier()
                    hub.writer.write(bad)
                    await worker.until_quit()
                    with self.assertRaises(skyfold_core.ObjectDead):
                        await finding
                    self.assertIn(why, str(worker.failure))
                    await worker.close()

    async def test_what_makes_no_sense_is_passed_over_and_the_conversation_goes_on(self) -> None:
        async with PlayedHub() as hub, skyfold_core.connect(hub.path) as worker:
            for bad in HARMLESS:
                hub.writer.write(bad)
            await hub.barrier()
            finding = asyncio.ensure_future(worker.find("Greeter"))
            await hub.barrier()
            answer = {"REQUEST_ID": 1, "RESULT": msgpack.ExtType(1, (7).to_bytes(8, "little")), "TYPE": "CALL_RESPONSE"}
            hub.writer.write(message(0, 3, answer, {7: "Greeter"}, 0))
            self.assertEqual(repr(await finding), "<Greeter 0 of worker 7>")

    async def test_each_way_to_break_an_answer_ends_its_call(self) -> None:
        broken = (
            msgpack.ExtType(1, b"1234567"),
            msgpack.ExtType(1, (3).to_bytes(8, "little")),  # An object of this worker, which has none.
            *(msgpack.ExtType(code, data) for code in (2, 3) for data in (b"", b"\x01", b"\x01\x02\xcd", b"\xc1\xc1", b"\x01\xcf" + b"\xff" * 8)),
            msgpack.Timestamp(1 << 62, 0),
        )
        async with PlayedHub() as hub, skyfold_core.connect(hub.path) as worker:
            for number, value in enumerate(broken, 1):
                with self.subTest(value=value):
                    call = worker._registry["anything"]()
                    await hub.barrier()
                    hub.writer.write(message(0, 3, {"REQUEST_ID": number, "RESULT": value, "TYPE": "CALL_RESPONSE"}, None, 0))
                    with self.assertRaises(skyfold_core.Error):
                        await call

    async def test_a_flood_of_calls_and_events_has_a_bound(self) -> None:
        ended: list[None] = []
        forever = asyncio.Event()

        class Sink(skyfold_core.Service):
            async def forget(self) -> None:
                try:
                    await forever.wait()
                finally:
                    ended.append(None)

        def call(number: int, size: int = 0, kind: str = "CALL") -> bytes:
            fields = {"ARGUMENT": b"x" * size, "METHOD_NAME": "forget", "REQUEST_ID": number, "TYPE": kind}
            return message(sink._object_id, 3, fields)

        bounds = {"serving.MOST_SERVED": 10, "listening.MOST_WAITING": 10, "serving.MOST_SERVED_BYTES": 20_000}
        for name, bound in bounds.items():
            self.enterContext(unittest.mock.patch("skyfold_core." + name, bound))
        async with PlayedHub() as hub, skyfold_core.connect(hub.path) as worker:
            sink = Sink()
            worker.reference(sink)
            news = worker._registry.news.listen()
            for large in (call(50, 15_000), call(51, 15_000), call(50, kind="CANCEL"), call(52, 15_000), call(52, kind="CANCEL")):
                hub.writer.write(large)
                await hub.barrier()
            self.assertEqual(len(ended), 2)
            for number in (0, *range(11)):  # Who uses a number again does not wait for the first answer.
                event = {"ARGUMENT": number, "EVENT_NAME": "news", "TYPE": "EVENT"}
                hub.writer.write(call(number) + message(0, 3, event, None, 0))
                await hub.barrier()
            refused = [each["REQUEST_ID"] for each in hub.calls() if each["TYPE"] == "CALL_ERROR"]
            self.assertEqual((refused, len(ended)), ([51, 10], 3))
            self.assertEqual([await news.next() for _ in range(10)], [0, *range(9)])
            with self.assertRaises(skyfold_core.RangeError):
                await news.next()
            big = worker._registry.big.listen()
            with unittest.mock.patch("skyfold_core.listening.MOST_WAITING_BYTES", 1000):
                event = {"ARGUMENT": "x" * 600, "EVENT_NAME": "big", "TYPE": "EVENT"}
                for _ in range(2):
                    hub.writer.write(message(0, 3, event, None, 0))
                    await hub.barrier()
                await big.next()
                with self.assertRaises(skyfold_core.RangeError):
                    await big.next()

    async def test_a_hub_that_does_not_read_its_answers_is_read_no_further_until_it_does(self) -> None:
        bound, skyfold_core.connection._PAUSING_BYTES = skyfold_core.connection._PAUSING_BYTES, 1 << 16
        self.addCleanup(setattr, skyfold_core.connection, "_PAUSING_BYTES", bound)

        class Doubler(skyfold_core.Service):
            def double(self, text: str) -> str:
                return text * 2

        async with PlayedHub() as hub, skyfold_core.connect(hub.path) as worker:
            connection = worker._participant._connection
            doubler = Doubler()
            worker.reference(doubler)
            hub.reads.clear()
            for number in range(200):
                call = {"ARGUMENT": "x" * 50_000, "METHOD_NAME": "double", "REQUEST_ID": number, "TYPE": "CALL"}
                hub.writer.write(message(doubler._object_id, 3, call))
            while not connection.is_paused:
                await asyncio.sleep(0)
            for _ in range(500):  # Far more turns than reading all of it would take.
                await asyncio.sleep(0)
            self.assertLess(connection._transport.get_write_buffer_size(), 5_000_000)  # Of 20 MB.
            self.assertGreater(hub.writer.transport.get_write_buffer_size(), 1_000_000)
            hub.reads.set()
            await hub.barrier()
            self.assertEqual([each["REQUEST_ID"] for each in hub.calls()], list(range(200)))

    async def test_a_hub_that_gives_no_id_or_is_silent_or_absent_fails_to_be_joined(self) -> None:
        for hello, failure in (
            (b"", skyfold_core.OperationTimedOut),
            (frame({1: 1}), skyfold_core.OperationTimedOut),
            (raw(b""), skyfold_core.ConnectionFailed),
        ):
            async with PlayedHub(hello) as hub:
                with self.assertRaises(failure):
                    await skyfold_core.connect(hub.path, timeout=0.1)
        with self.assertRaisesRegex(skyfold_core.ConnectionFailed, "no hub at /nowhere"):
            await skyfold_core.connect("/nowhere")

    async def test_frames_arrive_whole_wherever_the_stream_is_cut(self) -> None:
        async with PlayedHub() as hub, skyfold_core.connect(hub.path) as worker:
            heard = worker._registry.news.listen()
            events = [{"ARGUMENT": text, "EVENT_NAME": "news", "TYPE": "EVENT"} for text in ("x" * 70_000, "y", "z")]
            stream = b"".join(message(0, 3, event, None, 0) for event in events)
            for cut in (*range(1, 20), 70_000, len(stream) - 5, len(stream) - 1):
                hub.writer.write(stream[:cut])
                await asyncio.sleep(0)
                await asyncio.sleep(0)
                hub.writer.write(stream[cut:])
                self.assertEqual([(await heard.next())[0] for _ in events], ["x", "y", "z"])
