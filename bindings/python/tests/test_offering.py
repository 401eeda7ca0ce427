# What can break here: objects that Python offers, called by another worker through a real hub, or by their own.
import asyncio
import dataclasses
import datetime
import enum
import gc
import weakref
from typing import Any

import skyfold_core
from support import ApplicationTest


class Colour(enum.Enum):
    red = 1
    green = 2


@dataclasses.dataclass
class Box:
    width: int
    colour: Colour


class Shop(skyfold_core.Service, class_name="test::Shop"):
    sold = skyfold_core.Event(str, int)
    closed = skyfold_core.Event()
    owner = skyfold_core.Property("Ada")

    def __init__(self) -> None:
        self.ended: list[str] = []
        self.kept: Any = None

    def echo(self, value: Any) -> Any:
        return value

    def add(self, a: int, b: int = 10) -> int:
        return a + b

    def search(self, *, name: str, limit: int = 3) -> list[str | int]:
        return [name, limit]

    def put(self, boxes: list[Box], age: datetime.timedelta, fits: tuple[float, bool] | None) -> dict[str, Colour] | None:
        assert all(isinstance(box, Box) for box in boxes) and isinstance(age, datetime.timedelta)
        return {f"{box.width} {age} {fits}": box.colour for box in boxes}

    def sell(self, what: str, count: int) -> None:
        self.sold(what, count)
        self.closed()

    def rename(self, name: Any) -> None:
        self.owner = name

    def keep(self, thing: Any) -> Any:
        self.kept = thing
        return thing

    def make(self) -> "Shop":
        return Shop()

    async def wait(self, name: str) -> None:
        try:
            await asyncio.Event().wait()
        finally:
            self.ended.append(name)

    async def work(self) -> list[Any]:
        return [skyfold_core.remaining_time(), skyfold_core.trace_id()]

    def fail(self) -> None:
        raise KeyError("soup")

    def forget(self) -> asyncio.Future[None]:
        future = asyncio.get_running_loop().create_future()
        future.cancel()
        return future


class OfferingTest(ApplicationTest):
    async def asyncSetUp(self) -> None:
        await super().asyncSetUp()
        with skyfold_core.within(60), skyfold_core.trace(5):  # Of who connects, and of nobody who calls.
            self.owner = await skyfold_core.connect(self.application.path, name="owner")
        self.addAsyncCleanup(self.owner.close)
        self.shop = Shop()
        await self.owner.offer(self.shop)
        remote = await self.worker.find("test::Shop")
        self.ways = (remote, await self.owner.find("test::Shop"))
        self.assertEqual([type(way._object).__name__ for way in self.ways], ["RemoteObject", "LocalObject"])

    async def test_values_come_back_as_they_went(self) -> None:
        moment = datetime.datetime(1969, 7, 20, 20, 17, 40, 250_000, datetime.UTC)
        values = (None, True, -(1 << 63), (1 << 64) - 1, 0.5, "ä", b"\xff", [], {}, {1: [None, {"a": b""}]}, moment)
        values += (skyfold_core.Fraction(16, -9), skyfold_core.TypedBytes(b"\x00", "image/png"), "not \udcff utf-8", "x" * 70_000)
        nested: list[Any] = []
        for _ in range(505):
            nested = [nested]
        for way in self.ways:
            for value in (*values, nested):
                self.assertEqual(await way.echo(value), value)
            came = await way.echo([(1, 2), Box(3, Colour.red), datetime.timedelta(seconds=1)])
            self.assertEqual(came, [[1, 2], {"width": 3, "colour": "red"}, 1_000_000])
            for bad, text in (([[[[[[[[nested]]]]]]]], "nested"), (1 << 64, "65 bits"), (datetime.datetime(2000, 1, 1), "time zone")):
                with self.assertRaisesRegex(skyfold_core.Error, text):
                    await way.echo(bad)

    async def test_arguments_reach_the_parameters_or_are_refused(self) -> None:
        for way in self.ways:
            self.assertEqual([await way.add(1), await way.add(1, 2), await way.search(name="x")], [11, 3, ["x", 3]])
            self.assertEqual(await way.owner(), "Ada")
            day = 86_400_000_000
            put = await way.put([{"width": 1, "colour": "green", "more": 2}], day, [1, True])
            self.assertEqual(put, {"1 1 day, 0:00:00 (1.0, True)": "green"})
            place = "test::Shop.put, argument"
            for call, text in (
                (way.add("x", 1), "test::Shop.add, argument 1: expected an integer, got 'x'"),
                (way.put([{"width": 1, "colour": "b"}], 0, None), rf"{place} 1, element 0, field colour: .*red \| g.*got 'b'"),
                (way.put([{"width": 1}], 0, None), f"{place} 1, element 0: expected a map with all fields of Box"),
                (way.put([], 0, [1, 1]), f"{place} 3, element 1: expected a boolean, got 1"),
                (way.search(name=1), "test::Shop.search, argument name: expected a text, got 1"),
                (way.add(1, 2, 3), r"test::Shop.add: expected an array of 1 or more, got \[1, 2, 3\]"),
                (way.search("x"), "test::Shop.search: expected a map of named arguments, got 'x'"),
                (way.search(limit=1), "test::Shop.search: there is no argument name"),
                (way.nope(), "test::Shop has no method nope"),
                (way["__init__"](), "has no method __init__"),
                (way.fail(), "KeyError: 'soup'"),
                (way.forget(), "forgotten the call"),
            ):
                with self.assertRaisesRegex(skyfold_core.Error, text):
                    await call
            with self.assertRaises(TypeError):
                way.search("x", limit=1)

    async def test_events_and_changes_reach_all_who_have_a_reference(self) -> None:
        streams = [(way.sold.listen(), way.closed.listen(), way.owner.watch()) for way in self.ways]
        for sold, closed, owner in streams:
            self.assertEqual(await owner.next(), "Ada")
        await self.ways[0].sell("soup", 2)
        for name in ("Ada", "Bob", 1, True):
            await self.ways[0].rename(name)
        for sold, closed, owner in streams:
            self.assertEqual([await sold.next(), await closed.next(), await owner.next()], [["soup", 2], None, "Bob"])
            self.assertEqual([await owner.next(), await owner.next()], [1, True])

    async def test_a_call_ends_with_who_waits_for_it(self) -> None:
        for way, name in zip(self.ways, "ab"):
            call = way.wait(name)
            await way.owner()
            call.cancel()
            await self.until(lambda: name in self.shop.ended)
            with self.assertRaises(skyfold_core.OperationTimedOut):
                await way.wait.within(0.01)(name + "2")
            await self.until(lambda: name + "2" in self.shop.ended)
        third = await skyfold_core.connect(self.application.path)
        shop = await third.find("test::Shop")
        waiting = shop.wait("c")
        await shop.owner()
        await third.close()
        with self.assertRaises(skyfold_core.ObjectDead):
            await waiting
        await self.until(lambda: "c" in self.shop.ended)

    async def test_time_and_trace_go_along_and_nobody_else_has_them(self) -> None:
        for way in self.ways:
            with skyfold_core.within(60), skyfold_core.trace(77):
                left, trace = await way.work.within(90)()
            self.assertTrue(59 < left < 60, left)
            self.assertEqual((trace, await way.work()), (77, [None, 0]))

    async def test_each_object_is_held_as_long_as_somebody_has_it_and_no_longer(self) -> None:
        way = self.ways[0]
        made = await way.make()
        self.assertEqual((len(self.owner._participant.objects._held), await made.add(1)), (2, 11))
        again = await way.echo([made, made, {"x": made}])
        self.assertTrue(all(each is made for each in (again[0], again[1], again[2]["x"])))
        del made, again
        await self.until(lambda: len(self.owner._participant.objects._held) == 1)
        lent = Shop()
        gone = weakref.ref(lent)
        self.assertEqual((await (await way.keep(lent)).add(2), lent._uses > 0), (12, True))
        del lent
        gc.collect()
        self.assertIsNotNone(gone())
        await way.keep(None)
        gc.collect()
        await self.until(lambda: gone() is None)
        with self.assertRaisesRegex(skyfold_core.Error, "can not be sent by"):
            await way.echo(self.ways[1])

    async def test_an_object_says_what_it_is(self) -> None:
        said = await self.ways[0]["ipc.describe"]()
        self.assertEqual(said["interface"], "test::Shop")
        self.assertEqual(said["methods"]["add"], {"arguments": ["int64", "int64"], "result": "int64"})
        types = ["list<Box { width: int64; colour: Colour { red | green }; }>", "duration", "optional<tuple<double, bool>>"]
        self.assertEqual(said["methods"]["put"], {"arguments": types, "result": "optional<map<text, Colour { red | green }>>"})
        self.assertEqual(said["methods"]["make"]["result"], "object test::Shop")
        self.assertEqual((said["events"], said["properties"]), ({"sold": ["text", "int64"], "closed": []}, {"owner": "text"}))

    async def test_the_bus_brings_what_is_posted_and_keeps_what_is_sticky(self) -> None:
        bus, other = await self.worker.bus(), await self.owner.bus()
        self.assertIs(await self.worker.bus(), bus)
        heard = [each.listen("test.mood") for each in (bus, other)]
        bus.post("test.mood", ["fine"])
        bus.post("test.other", 1)
        bus.post("test.mood", "better", sticky=True)
        for stream in heard:
            self.assertEqual([await stream.next(), await stream.next()], [["fine"], "better"])
        async with skyfold_core.connect(self.application.path) as late:
            self.assertEqual((await late.bus()).sticky("test.mood"), "better")

    async def test_who_closes_or_hears_of_the_end_leaves_nothing_waiting(self) -> None:
        waiting = self.ways[1].wait("d")
        quit_heard: list[bool] = []
        self.owner.on_quit(lambda: quit_heard.append(True))
        await self.owner.close()
        with self.assertRaises(skyfold_core.ObjectDead):
            await waiting
        self.assertEqual((quit_heard, self.owner._participant.serving._tasks, self.owner._participant.objects._held), ([True], {}, {}))
        await self.until(lambda: self.ways[0].is_dead)
        for late in (self.owner.offer(Shop()), self.owner.reference(self.shop).owner()):
            with self.assertRaises(skyfold_core.ObjectDead):
                await late
