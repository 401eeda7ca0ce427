# What can break here: how often an object has come and gone, which calls a number means, and whom an id means. A played hub sees each
# message that the worker sends.
import asyncio
import gc
import threading
from typing import Any

import msgpack
import skyfold_core
from support import AsyncTest, PlayedHub, frame, message

def an_object(object_id: int) -> msgpack.ExtType:
    return msgpack.ExtType(1, object_id.to_bytes(8, "little"))


def event(*objects: int, listed: dict[int, str] | None = None, source: int = 7) -> bytes:
    payload = {"ARGUMENT": [an_object(each) for each in objects], "EVENT_NAME": "news", "TYPE": "EVENT"}
    return message(0, 3, payload, listed if listed is not None else {each: "Thing" for each in objects}, source)


class CountingTest(AsyncTest):
    async def asyncSetUp(self) -> None:
        self.hub = await self.enterAsyncContext(PlayedHub())
        self.worker = await self.enterAsyncContext(skyfold_core.connect(self.hub.path))
        self.news = self.worker._registry.news.listen()

    async def say(self, *frames: bytes) -> None:
        for each in frames:
            self.hub.writer.write(each)
        await self.hub.barrier()

    def sent(self, kind: int) -> list[dict[int, Any]]:
        return [each for each in self.hub.heard if each[1] == kind]

    async def test_each_message_that_brought_an_object_is_released_once(self) -> None:
        first, second = 7, 1 << 16 | 7
        with_another = event(first, listed={first: "Thing", 99 << 16 | 7: "Gone"})
        await self.say(event(first, first), event(first, second), event(first), with_another)
        things = [await self.news.next() for _ in range(4)]
        self.assertTrue(all(each[0] is things[0][0] for each in things))
        self.assertEqual(self.sent(5), [{1: 5, 5: 99 << 16 | 7, 10: 1}])  # Listed, and not there.
        del things
        gc.collect()
        await self.hub.barrier()
        self.assertEqual({each[5]: each[10] for each in self.sent(5)}, {first: 4, second: 1, 99 << 16 | 7: 1})
        await self.say(event(first))  # Came again behind its release, and goes in another thread.
        holder = [await self.news.next()]
        thread = threading.Thread(target=holder.clear)
        thread.start()
        thread.join()
        await self.hub.barrier()
        self.assertEqual([each[10] for each in self.sent(5) if each[5] == first], [4, 1])

    async def test_an_object_that_comes_while_it_goes_is_not_lost(self) -> None:
        await self.say(event(7))
        thing = (await self.news.next())[0]
        self.hub.writer.write(event(7) + event(7))
        del thing
        await self.hub.barrier()
        again = [(await self.news.next())[0] for _ in range(2)]
        self.assertIs(again[0], again[1])
        self.assertEqual(sum(each[10] for each in self.sent(5)) + again[0]._object.uses, 3)
        self.assertFalse(again[0].is_dead)

    async def test_an_object_that_comes_again_before_its_release_has_left_is_kept(self) -> None:
        await self.say(event(7))
        holder = [(await self.news.next())[0]]
        remote = holder[0]._object
        self.worker._registry.drop.on(lambda _: holder.clear())
        await self.say(message(0, 3, {"ARGUMENT": None, "EVENT_NAME": "drop", "TYPE": "EVENT"}, None, 0) + event(7))
        again = (await self.news.next())[0]
        self.assertEqual((holder, again._object is remote, remote.uses, self.sent(5)), ([], True, 2, []))
        call = again.work()  # It is in the table: its answer is heard.
        await self.hub.barrier()
        await self.say(message(7, 3, {"REQUEST_ID": 1, "RESULT": "done", "TYPE": "CALL_RESPONSE"}, None, 7))
        self.assertEqual(await call, "done")

    async def test_what_breaks_on_the_way_in_is_released(self) -> None:
        for payload in (b"\xc1", msgpack.packb({"TYPE": "EVENT", "EVENT_NAME": "news", "ARGUMENT": an_object(7)}) + b"\xc0"):
            before = len(self.sent(5))
            await self.say(message(0, 3, payload, {7: "Thing"}, 7))
            gc.collect()
            await self.hub.barrier()
            self.assertEqual(self.sent(5)[before:], [{1: 5, 5: 7, 10: 1}])

    async def test_an_own_object_lives_until_all_that_carried_it_is_released(self) -> None:
        class Thing(skyfold_core.Service):
            pass

        thing = Thing()
        for _ in range(3):
            self.worker._registry.take(thing, [thing])
        await self.hub.barrier()
        own = thing._object_id
        self.assertEqual((own, [each[9] for each in self.sent(4)], thing._uses), (3, [{own: "Thing"}] * 3, 3))
        await self.say(frame({1: 6, 5: own, 10: 2}))
        self.assertEqual((thing._uses, list(self.worker._participant.objects._held)), (1, [own]))
        await self.say(frame({1: 6, 5: own, 10: 1}))
        self.assertEqual((thing._uses, list(self.worker._participant.objects._held)), (0, []))

    async def test_a_dead_workers_objects_are_dead_from_the_start_and_nobody_elses_when_its_id_is_given_out_again(self) -> None:
        await self.say(event(7, 1 << 16 | 7, 8))
        first, second, other = pair = await self.news.next()
        states: list[tuple[bool, bool]] = []
        first.on_death(lambda: states.append((pair[0].is_dead, pair[1].is_dead)))
        call = second.work()
        await self.say(frame({1: 7, 4: 7}), frame({1: 7, 4: 7}), event(2 << 16 | 7))
        late = (await self.news.next())[0]
        self.assertEqual((states, late.is_dead, other.is_dead), ([(True, True)], True, False))
        for each in (call, late.work()):
            with self.assertRaisesRegex(skyfold_core.ObjectDead, "Thing.work: the object's worker has gone"):
                await each
        await self.say(frame({1: 9, 4: 7}), event(7))
        new = (await self.news.next())[0]
        self.assertEqual((new is first, new.is_dead, first.is_dead), (False, False, True))
        self.worker._registry.take(first, new)
        await self.hub.barrier()
        self.assertEqual(self.hub.calls()[-1]["ARGUMENT"], [None, an_object(7)])
        await self.say(frame({1: 7, 4: 8}))
        self.assertTrue(other.is_dead)
        del first, second, other, late
        pair.clear()
        gc.collect()
        await self.hub.barrier()
        self.assertEqual(self.sent(5), [])  # The dead are not released.

    async def test_the_end_is_told_before_it_comes_and_calls_go_on_until_then(self) -> None:
        told: list[bool] = []
        self.worker.on_quit(lambda: told.append(self.worker.is_connected))
        await self.say(event(7), frame({1: 8}), frame({1: 8}))
        await self.worker.until_quit()
        thing = (await self.news.next())[0]
        call = thing.work()
        await self.hub.barrier()
        self.assertEqual((len(self.hub.calls()), thing.is_dead), (1, False))
        self.hub.writer.close()
        with self.assertRaises(skyfold_core.ObjectDead):
            await call
        late = asyncio.Event()
        self.worker.on_quit(late.set)
        await late.wait()
        self.assertEqual((told, thing.is_dead, self.worker.is_connected, self.worker.failure), ([True], True, False, None))

    async def test_a_number_is_not_used_again_while_an_answer_to_it_may_come(self) -> None:
        await self.say(event(7))
        thing = (await self.news.next())[0]
        for call in (thing.work(), thing.work()):
            call.cancel()
        del thing, call
        gc.collect()
        await self.say(event(7))
        thing = (await self.news.next())[0]
        answered = thing.work()
        await self.hub.barrier()
        told = [(each["TYPE"], each["REQUEST_ID"]) for each in self.hub.calls()]
        self.assertEqual(told, [("CALL", 1), ("CALL", 2), ("CANCEL", 1), ("CANCEL", 2), ("CALL", 3)])
        for number in (1, 2, 3):
            await self.say(message(7, 3, {"REQUEST_ID": number, "RESULT": number, "TYPE": "CALL_RESPONSE"}, None, 7))
        self.assertEqual(await answered, 3)
        numbers = self.worker._participant.objects.request_numbers
        for sequence in range(2001):  # One number holds for more than can be kept.
            numbers.cancelled(sequence << 16 | 7, sequence)
        self.assertEqual((numbers.last(5 << 16 | 7), numbers.last(8)), (1999, 0))

    async def test_a_change_before_the_answer_is_in_the_answer_and_one_right_behind_it_is_told(self) -> None:
        seen: list[Any] = []
        with skyfold_core.within(0.001), skyfold_core.trace(5):  # Of who asks; the value is for others, too.
            self.worker._registry.mood.on_change(seen.append)
        await self.hub.barrier()
        self.assertEqual(sorted(self.hub.calls()[0]), ["ARGUMENT", "METHOD_NAME", "REQUEST_ID", "TYPE"])

        def change(value: str) -> bytes:
            return message(0, 3, {"ARGUMENT": value, "EVENT_NAME": "mood", "TYPE": "EVENT"}, None, 0)

        answer = message(0, 3, {"REQUEST_ID": 1, "RESULT": "b", "TYPE": "CALL_RESPONSE"}, None, 0)
        await self.say(change("a") + change("b") + answer + change("c"))
        self.assertEqual(seen, ["b", "c"])
