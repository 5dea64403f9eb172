#!/usr/bin/env python3
"""The chat example against a peer that loses its connections in every way.

    chat_test.py PROGRAM...     the program, after what runs it
"""

import asyncio
import sys

from websockets.legacy.server import serve

LIMIT_S = 60
LONG_MS = 40000  # a heartbeat that no test waits for
SHORT_MS = 4000


async def closes(connection):
    await connection.send("welcome")
    await connection.recv()
    await connection.close(1001, "going away")


async def is_silent(connection):
    """Greets and never answers, so that the heartbeat must tell."""
    await connection.send("welcome")


async def vanishes(connection):
    await connection.send("welcome")
    await connection.recv()
    connection.transport.abort()


async def does_not_greet(_connection):
    pass


async def echoes(connection):
    await connection.send("welcome")
    async for message in connection:
        await connection.send(message)


async def answers_late(connection):
    """Lets heartbeats pass, all answered, before it answers the text."""
    await connection.send("welcome")
    text = await connection.recv()
    for _ in range(2):
        assert await connection.recv() == "heartbeat"
        await connection.send("heartbeat")
    await connection.send(text)


async def chat(program, beat_ms, behaviours, *texts):
    """The exit code and what it printed; each connection meets the next behaviour."""
    left = list(behaviours)
    codes = []

    async def handle(connection, _path):
        await left.pop(0)(connection)
        await connection.wait_closed()
        codes.append(connection.close_code)

    async with serve(handle, "127.0.0.1", 0, ping_interval=None, close_timeout=1) as server:
        port = server.sockets[0].getsockname()[1]
        process = await asyncio.create_subprocess_exec(
            *program, "--beat", str(beat_ms), f"ws://127.0.0.1:{port}/", *texts,
            stdout=asyncio.subprocess.PIPE)
        try:
            printed, _ = await asyncio.wait_for(process.communicate(), LIMIT_S)
        finally:
            if process.returncode is None:
                process.kill()
                await process.wait()
    lines = [line.split(maxsplit=1)[1] for line in printed.decode().splitlines()]
    lines = [line for line in lines if not line.startswith("connecting")]
    return process.returncode, lines, codes


def expect(told, expected):
    if told != expected:
        sys.exit(f"expected {expected}\n     got {told}")


CLOSED = "closed by the peer: 1001 going away"
SILENT = "nothing heard since the last heartbeat"
LOST = 1006  # what a peer calls an end to which no close frame came


async def main(program):
    told = await asyncio.gather(
        chat(program, LONG_MS, [echoes], "one", "two"),
        chat(program, LONG_MS, [closes, echoes], "text"),
        chat(program, LONG_MS, [closes] * 6, "text"),
        chat(program, SHORT_MS, [answers_late], "text"),
        chat(program, SHORT_MS, [is_silent, vanishes, does_not_greet, echoes], "text"))
    asked, answered = ["< welcome", "> text"], ["< text"]
    expect(told, [
        (0, ["< welcome", "> one", "< one", "> two", "< two"], [1000]),
        (0, asked + [CLOSED] + asked + answered, [LOST, 1000]),
        (1, (asked + [CLOSED]) * 5, [LOST] * 5),
        (0, asked + ["< heartbeat", "< heartbeat"] + answered, [1000]),
        (0, (asked + [SILENT]) * 2 + [SILENT] + asked + answered, [LOST, LOST, LOST, 1000])])
    print("the chats said everything, over as many connections as it took")


if __name__ == "__main__":
    asyncio.run(main(sys.argv[1:]))
