# What can break here: what Python and C++ agree on. The modules of examples/ladder, each in a process of its own, seen from Python.
import asyncio
import gc
import weakref

import skyfold_core
from support import ApplicationTest


class OverdrawnError(skyfold_core.Error):
    pass


class Heating(skyfold_core.Reference):
    pass


class LadderTest(ApplicationTest):
    modules = ("1_one_call", "2_events", "3_property", "4_objects", "5_errors", "6_cancel_and_deadline", "8_relaunch")

    async def test_a_call_gives_its_result_or_says_what_is_wrong(self) -> None:
        greeter = await self.worker.find("Greeter")
        self.assertEqual(await greeter.greet("Ada"), "Hello, Ada!")
        for call, error, text in (
            (greeter.nope(), skyfold_core.Error, "Greeter has no method nope"),
            (greeter.greet(3), skyfold_core.DataFormatError, "Greeter.greet: expected a text, got 3"),
            (greeter.greet(1 << 64), skyfold_core.RangeError, "whole number of 65 bits"),
            (greeter.greet([object()]), skyfold_core.DataFormatError, "builtins.object does not travel"),
            (self.worker.find("Nobody", timeout=0.01), skyfold_core.OperationTimedOut, "Object of class Nobody is not available"),
        ):
            with self.assertRaisesRegex(error, text):
                await call

    async def test_events_come_before_the_answer_and_end_with_who_hears_them(self) -> None:
        kitchen = await self.worker.find("Kitchen")
        heard: list[object] = []
        with kitchen.progress.on(heard.append):
            stream = kitchen.progress.listen()
            await kitchen.cook("soup")
            self.assertEqual(heard, [["soup", 50], ["soup", 100]])
        stream.cancel()
        await kitchen.cook("cake")
        self.assertEqual(len(heard), 2)
        self.assertEqual([event async for event in stream], [])

    async def test_who_watches_a_property_is_told_its_value_and_each_change_once(self) -> None:
        heating = await self.worker.find(Heating)
        self.assertEqual(await heating.temperature.get(), 18)
        first: list[object] = []
        second: list[object] = []
        heating.temperature.on_change(first.append)
        for degrees in (2, 0, 1):  # Sent before the value has come.
            heating.warmBy(degrees)
        await heating.warmBy(1)
        heating.temperature.on_change(second.append)  # It comes late: is told now, and then hears what follows.
        watching = heating.temperature.watch()
        await heating.warmBy(1)
        self.assertEqual((first, second), ([18, 20, 21, 22, 23], [22, 23]))
        self.assertEqual([await watching.next(), await watching.next()], [22, 23])

    async def test_objects_are_lent_and_given_and_go_when_nobody_has_them(self) -> None:
        class Clerk(skyfold_core.Service):
            def note(self, what: str) -> str:
                return "noted: " + what

        bank = await self.worker.find("Bank")
        clerk = Clerk()
        lent = weakref.ref(clerk)
        account = await bank.open(clerk)
        del clerk
        for amount, balance in ((5, 5), (7, 12)):
            self.assertEqual(await account.deposit(amount), f"noted: a balance of {balance}")
        self.assertIsNotNone(lent())
        del account  # The bank's account holds the clerk.
        gc.collect()
        await self.until(lambda: lent() is None)

    async def test_an_exception_comes_as_its_class_with_its_details(self) -> None:
        account = await self.worker.find("Account")
        self.assertEqual(await account.withdraw(8), 2)
        with self.assertRaisesRegex(OverdrawnError, "The account is empty") as caught:
            await account.withdraw(8)
        self.assertEqual((caught.exception.error_code, caught.exception.class_name), (6, "OverdrawnException"))
        with self.assertRaisesRegex(skyfold_core.RangeError, "An amount is positive"):
            await account.withdraw(-1)

    async def test_time_limits_and_cancelled_tasks_end_the_call_in_the_other_process(self) -> None:
        oracle = await self.worker.find("Oracle")
        given_up = oracle.givenUp.listen()
        with self.assertRaisesRegex(skyfold_core.OperationTimedOut, "Oracle.ask has not answered within 20 ms"):
            await oracle.ask.within(0.02)("A?")
        self.assertEqual(await given_up.next(), "A?")
        with self.assertRaises(TimeoutError):
            async with asyncio.timeout(0.02):
                await oracle.ask("B?")
        self.assertEqual(await given_up.next(), "B?")
        with skyfold_core.within(0.02), self.assertRaisesRegex(skyfold_core.OperationTimedOut, r"within [\d.]+ ms"):
            await oracle.ask.within(5)("C?")
        self.assertEqual(await given_up.next(), "C?")

    async def test_a_death_ends_calls_and_streams_and_is_told_once(self) -> None:
        machine = await self.worker.find("Machine")
        deaths: list[bool] = []
        machine.on_death(lambda: deaths.append(machine.is_dead))
        stream = machine.anything.listen()
        process = await machine.process()
        with self.assertRaisesRegex(skyfold_core.ObjectDead, "Machine.crash: the object's worker has gone"):
            await machine.crash(process)
        for failing in (stream.next(), machine.anything.listen().next(), machine.anything.watch().next(), machine.process()):
            with self.assertRaises(skyfold_core.ObjectDead):
                await failing
        self.assertEqual(deaths, [True])
        late = asyncio.Event()
        machine.on_death(late.set)
        await late.wait()
