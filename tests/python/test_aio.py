"""The asyncio bus: the rules of the blocking one, and those of event loops."""
from __future__ import annotations

import asyncio
import functools
import logging
import os
import signal
import socket
import sys
import threading
import time
import warnings
from typing import Any, Awaitable, Callable, List

import pytest
from conftest import KILLS
from fake_server import FakeServer, confirm

import telvane
from telvane import Reason, State, aio
from telvane.testing import Server, short_directory


def in_loop(test: Callable[..., Awaitable[None]]) -> Callable[..., None]:
    """Runs the test in an event loop, and demands that it leaves no task there."""

    @functools.wraps(test)
    def run(*arguments: Any, **named: Any) -> None:
        async def main() -> None:
            threads = threading.active_count()
            await asyncio.wait_for(test(*arguments, **named), 60)
            assert asyncio.all_tasks() == {asyncio.current_task()}
            assert threading.active_count() == threads

        asyncio.run(main())

    return run


async def until(condition: Callable[[], bool], timeout: float = 10.0) -> None:
    deadline = time.monotonic() + timeout
    while not condition():
        assert time.monotonic() < deadline, "it did not happen in time"
        await asyncio.sleep(0.002)


@in_loop
async def test_a_record_arrives_with_its_delivery(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        async with bus.listen(telvane.LogData, timeout=0.05) as listener:
            await bus.publish(telvane.LogData(log="hello"))
            assert await listener.recv(5) == telvane.LogData(log="hello")
            assert listener.delivery is not None and listener.delivery.epoch == 1
            await bus.publish(telvane.LogData(log="x"))
            await until(lambda: listener.pending == 1)
            assert [record.log async for record in listener] == ["x"]
            with pytest.raises(telvane.RequestTimeout):
                await listener.recv(0.01)


@in_loop
async def test_a_bus_may_be_made_before_there_is_a_loop(telvane_path: str) -> None:
    bus = await asyncio.get_running_loop().run_in_executor(None, aio.Bus, telvane_path)
    with pytest.raises(telvane.BusError, match="enter the bus first"):
        bus.listen(telvane.LogData)
    async with bus:
        await bus.wait_connected()
    with pytest.raises(telvane.BusClosed, match="make another one"):
        await bus.__aenter__()
    await asyncio.get_running_loop().shutdown_default_executor()


@in_loop
async def test_requests_are_answered_by_functions_and_coroutines(telvane_path: str) -> None:
    async def slow() -> telvane.DataStatus:
        await asyncio.sleep(0.01)
        return telvane.DataStatus(ttl=7)

    async with aio.Bus(telvane_path) as bus, aio.Bus(telvane_path) as other:
        async with other.respond(telvane.DataStatus, slow), other.respond(
                telvane.ConfigReply, lambda asked: telvane.ConfigReply(asked.Key), question=telvane.ConfigRequest):
            assert (await bus.request(telvane.DataStatus, timeout=5)).ttl == 7
            names = [f"K{number}" for number in range(20)]
            replies = await asyncio.gather(*(
                bus.request(telvane.ConfigReply, telvane.ConfigRequest(Key=name), timeout=10) for name in names))
            assert [reply.Key for reply in replies] == names
        with pytest.raises(telvane.RequestTimeout):
            await bus.request(telvane.DataStatus, timeout=0.05)


@in_loop
async def test_a_request_in_a_callback_works(telvane_path: str) -> None:
    answers: List[int] = []
    async with aio.Bus(telvane_path) as bus:
        async def callback(record: telvane.LogData, delivery: telvane.Delivery) -> None:
            answers.append((await bus.request(telvane.DataStatus, timeout=5)).ttl)
            await subscription.close()

        async with bus.respond(telvane.DataStatus, lambda: telvane.DataStatus(ttl=3)):
            subscription = bus.subscribe(telvane.LogData, callback)
            await subscription.ready()
            await bus.publish(telvane.LogData())
            await until(lambda: answers == [3])


@pytest.mark.parametrize("error", [ValueError, SystemExit])
def test_an_exception_in_a_callback_is_logged_counted_reported_and_the_bus_goes_on(
        telvane_path: str, caplog: pytest.LogCaptureFixture, error: "type[BaseException]") -> None:
    seen: List[str] = []
    reported: List[Any] = []

    async def callback(record: telvane.LogData, delivery: telvane.Delivery) -> None:
        seen.append(record.log)
        if record.log == "bad":
            raise error("from the callback")

    @in_loop
    async def test() -> None:
        async with aio.Bus(telvane_path, on_error=lambda error, of: reported.append((error, of))) as bus:
            async with bus.subscribe(telvane.LogData, callback) as subscription:
                await bus.publish(telvane.LogData(log="bad"))
                await bus.publish(telvane.LogData(log="good"))
                await until(lambda: seen == ["bad", "good"])
                assert bus.counters.callback_errors == subscription.counters.callback_errors == 1
                assert isinstance(reported[0][0], error) and reported[0][1] is subscription

    with caplog.at_level(logging.ERROR, "telvane"):
        test()
    assert "exception in a callback on LogData" in caplog.text


@in_loop
async def test_refused_subscriptions_say_so(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        await bus.wait_connected()
        with pytest.raises(telvane.SubscriptionRefused):
            async with bus.listen("Oven1"):
                pass
        with pytest.raises(telvane.SubscriptionRefused):
            async for _ in bus.listen("Oven1"):
                pass
        with pytest.raises(telvane.SubscriptionRefused):
            await bus.request("Oven1")


@in_loop
async def test_without_a_server_everything_says_so_at_once() -> None:
    directory = short_directory()
    try:
        async with aio.Bus(f"{directory}/bus") as bus:
            for operation in (lambda: bus.publish(telvane.LogData()), lambda: bus.request(telvane.DataStatus),
                              lambda: bus.wait_connected(0.05), lambda: bus.listen(telvane.LogData).recv(0.01)):
                with pytest.raises(telvane.NotConnected, match="no server listens on the path") as info:
                    await operation()
                assert isinstance(info.value.__cause__, FileNotFoundError)
    finally:
        os.rmdir(directory)


@in_loop
async def test_everything_comes_back_after_the_server(telvane_server: Server) -> None:
    called: List[str] = []
    async with aio.Bus(telvane_server.path) as bus:
        marked = bus.listen(telvane.LogData, with_events=True)
        async with bus.subscribe(telvane.LogData, lambda record, _: called.append(record.log)), \
                bus.respond(telvane.DataStatus, lambda: telvane.DataStatus(ttl=1)):
            for epoch in (2, 3):
                telvane_server.restart()
                await until(lambda: bus.epoch == epoch and bus.connected)
                await bus.publish(telvane.LogData(log=str(epoch)))
                assert (await bus.request(telvane.DataStatus, timeout=5)).ttl == 1
                lost, restored, record = [await marked.recv(5) for _ in range(3)]
                assert isinstance(lost, telvane.ConnectionLost) and lost.reason is Reason.LOST
                assert isinstance(restored, telvane.ConnectionRestored) and restored.epoch == epoch
                assert record == telvane.LogData(log=str(epoch))
            await until(lambda: called == ["2", "3"])


@in_loop
async def test_a_loss_ends_a_request_with_its_cause(telvane_server: Server) -> None:
    async with aio.Bus(telvane_server.path) as bus:
        asking = asyncio.create_task(bus.request(telvane.DataStatus, timeout=30))
        await until(lambda: bus.counters.published == 1)
        telvane_server.kill()
        with pytest.raises(telvane.NotConnected, match="the connection was lost"):
            await asking


@in_loop
async def test_servers_that_misbehave_are_told_apart() -> None:
    with FakeServer(greet=lambda client: client.shutdown(socket.SHUT_RDWR)) as server:
        async with aio.Bus(server.path) as bus:
            await until(lambda: bus.reason is Reason.REFUSED)
    with FakeServer(answer=None) as server:
        async with aio.Bus(server.path) as bus:
            await until(lambda: bus.reason is Reason.SILENT)
    with FakeServer(lambda sock, packet: (sock.send(b"rubbish"), confirm(sock, packet))[1]) as server:  # type: ignore
        async with aio.Bus(server.path) as bus:
            await bus.wait_connected()
            assert bus.counters.not_json == 1


@in_loop
async def test_a_server_that_stops_reading_ends_publish_in_time(telvane_server: Server) -> None:
    assert telvane_server.pid is not None
    async with aio.Bus(telvane_server.path) as bus:
        await bus.wait_connected()
        os.kill(telvane_server.pid, signal.SIGSTOP)
        try:
            begin = time.monotonic()
            with pytest.raises(telvane.RequestTimeout, match="does not read"):
                while time.monotonic() < begin + 30:
                    await bus.publish(telvane.LogData(log="x" * 16000), timeout=0.05)
            with pytest.raises(telvane.RequestTimeout):
                await bus.request(telvane.DataStatus, timeout=0.05)
        finally:
            os.kill(telvane_server.pid, signal.SIGCONT)
        await bus.publish(telvane.LogData(), timeout=10)


@in_loop
async def test_a_cancelled_recv_loses_nothing(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        async with bus.listen(telvane.LogData) as listener:
            for number in range(50):
                receiving = asyncio.create_task(listener.recv())
                await asyncio.sleep(0)
                await bus.publish(telvane.LogData(log=str(number)))
                if number % 2:
                    await until(lambda: listener.pending > 0 or receiving.done())
                receiving.cancel()
                try:
                    record = await receiving
                except asyncio.CancelledError:
                    record = await listener.recv(5)
                assert record.log == str(number)


@in_loop
async def test_close_wakes_everything_and_may_be_called_again(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        listener = bus.listen(telvane.LogData)
        waiting = [asyncio.create_task(listener.recv()),
                   asyncio.create_task(bus.request(telvane.DataStatus, timeout=30))]
        await until(lambda: bus.counters.published == 1)
        await bus.close()
        await bus.close()
        for task in waiting:
            with pytest.raises(telvane.BusClosed):
                await task
        assert [record async for record in listener] == []
        with pytest.raises(telvane.BusClosed):
            await bus.publish(telvane.LogData())
    assert bus.state is State.CLOSED


@in_loop
async def test_a_full_queue_does_not_keep_other_tasks_from_running(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        async with bus.listen(telvane.LogData) as listener:
            for number in range(1000):
                await bus.publish(telvane.LogData(log=str(number)), timeout=10)
                if number % 50 == 0:
                    await asyncio.sleep(0.001)
            await until(lambda: listener.pending + bus.counters.dropped >= 1000)
            turns = 0

            async def count() -> None:
                nonlocal turns
                while True:
                    turns += 1
                    await asyncio.sleep(0)

            counter = asyncio.create_task(count())
            for _ in range(1000):
                await listener.recv(5)
            counter.cancel()
            await asyncio.wait([counter])
            assert turns >= 10


@pytest.mark.skipif(sys.implementation.name != "cpython", reason="PyPy ends unused objects later")
def test_a_bus_that_was_not_closed_warns(telvane_path: str) -> None:
    async def main() -> None:
        bus = aio.Bus(telvane_path)
        await bus.__aenter__()
        with pytest.warns(ResourceWarning, match="unclosed <telvane.aio.Bus"):
            del bus

    asyncio.run(main())


@in_loop
async def test_an_error_of_the_package_itself_does_not_end_the_receiver(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus, bus.listen(telvane.LogData, with_events=True) as listener:
        await bus.wait_connected()
        feed, errors = bus._core.hub.feed, [ZeroDivisionError("in the package")]

        def broken(data: bytes, arrival: float) -> None:
            if errors:
                raise errors.pop()
            feed(data, arrival)

        bus._core.hub.feed = broken  # type: ignore[method-assign]
        await bus.publish(telvane.LogData(log="lost"))
        lost, restored = await listener.recv(5), await listener.recv(5)
        assert isinstance(lost, telvane.ConnectionLost) and isinstance(lost.cause, ZeroDivisionError)
        assert isinstance(restored, telvane.ConnectionRestored)
        await bus.publish(telvane.LogData(log="x"))
        assert await listener.recv(5) == telvane.LogData(log="x")


@in_loop
async def test_requests_leave_no_subscription(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus:
        await bus.wait_connected()
        with pytest.raises(telvane.RequestTimeout):
            await bus.request(telvane.DataStatus, timeout=0.01)
        answer = await bus.request("TelvaneChannels", timeout=5)
        assert "DataStatus" not in {entry["channel"] for entry in answer["channels"] if entry["subscribers"]}


@in_loop
async def test_after_a_fork_the_child_is_refused_and_the_parent_goes_on(telvane_path: str) -> None:
    async with aio.Bus(telvane_path) as bus, bus.listen(telvane.LogData) as listener:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            child = os.fork()
        if child == 0:
            code = 1
            try:
                for operation in (lambda: bus.listen(telvane.LogData),
                                  lambda: bus.publish(telvane.LogData()).send(None)):
                    try:
                        operation()
                    except telvane.WrongContext:
                        continue
                    os._exit(2)
                code = 0
            finally:
                os._exit(code)
        assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
        await bus.publish(telvane.LogData(log="x"))
        assert (await listener.recv(5)).log == "x"


def test_another_loop_is_refused(telvane_path: str) -> None:
    async def main() -> None:
        async with aio.Bus(telvane_path) as bus:
            def elsewhere() -> None:
                with pytest.raises(telvane.WrongContext, match="another event loop"):
                    bus.listen(telvane.LogData)

            thread = threading.Thread(target=elsewhere)
            thread.start()
            while thread.is_alive():
                await asyncio.sleep(0.01)

    asyncio.run(main())


@in_loop
async def test_the_server_is_killed_again_and_again(telvane_server: Server) -> None:
    async with aio.Bus(telvane_server.path) as bus:
        listener = bus.listen(telvane.LogData)
        await bus.wait_connected()
        for number in range(KILLS):
            telvane_server.restart()
            await until(lambda: bus.epoch == number + 2 and bus.connected)
            await bus.publish(telvane.LogData(log=str(number)))
            while (await listener.recv(5)).log != str(number):
                pass
        assert bus.counters.connections == KILLS + 1
