#!/usr/bin/env python3
"""The same with asyncio, and an answer for everybody who asks: watch_welds_async.py PATH"""
import asyncio
import sys

import telvane
from telvane import aio


async def main(path: str) -> None:
    status = telvane.DataStatus(ttl=0)

    async with aio.Bus(path) as bus:
        bus.respond(telvane.DataStatus, lambda: status)
        async for end in bus.listen(telvane.WeldTriggerEnd):
            status.ttl += 1
            await bus.publish(telvane.LogData(log=f"weld {end.tag} has ended"))
            print(f"weld {end.tag}: {end.metrics.ArcDuration.Value:.1f} s", flush=True)


asyncio.run(main(sys.argv[1]))
