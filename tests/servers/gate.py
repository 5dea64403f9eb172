"""Lets one request wait for another, so that tests can order events without sleeping."""

import asyncio


class Gate:
    """Where requests with the same key wait for their release."""

    def __init__(self):
        self.waiting = 0
        self._generation = 0
        self._changed = asyncio.Condition()

    async def wait(self, leaving):
        """True once released, false if `leaving` is done before."""
        generation = self._generation
        await self._change(+1)
        released = asyncio.ensure_future(
            self._until(lambda: self._generation != generation))
        left = asyncio.ensure_future(leaving)
        try:
            await asyncio.wait({released, left}, return_when=asyncio.FIRST_COMPLETED)
            return released.done()
        finally:
            for task in (released, left):
                task.cancel()
            if self._generation == generation:
                await self._change(-1)

    async def release(self):
        """Lets all go that wait now; returns how many."""
        async with self._changed:
            count, self.waiting = self.waiting, 0
            self._generation += 1
            self._changed.notify_all()
        return count

    async def at_least(self, count):
        await self._until(lambda: self.waiting >= count)

    async def _until(self, predicate):
        async with self._changed:
            await self._changed.wait_for(predicate)

    async def _change(self, difference):
        async with self._changed:
            self.waiting += difference
            self._changed.notify_all()
