#!/usr/bin/env python3
"""A line with a delay and a rate, which counts what goes over it.
  relay.py LISTEN TO DELAY RATE COMMAND...

Listens on the loopback's port LISTEN while COMMAND runs, and passes each connection on to its port
TO: what goes up or down arrives half of DELAY milliseconds later, at RATE megabits a second for each
way of the whole line (0: as fast as it comes). A connection's first bytes wait for its opening, one
DELAY more; those of a server that speaks first for its last leg, too. Prints one line at the end:
  MS KIB UP DOWN TRIPS CONNECTIONS
time and largest memory of the command, bytes it sent and got, and how often it waited for the other
end: once a connection, once for a server that speaks first, and once for each run of bytes that
went up behind what came down. With ZEV_RELAY_LOG that file gets a line for each such run: the bytes
up and down before it, and its own first line. The command's output goes to /dev/null, its errors
stay; its exit code is the relay's."""

import asyncio
import os
import subprocess
import sys
import threading
import time

BLOCK = 1 << 16


class Line:
    """One way: what it carries is due in the order in which it came."""

    def __init__(self, rate):
        self.bytes, self.free, self.rate = 0, 0.0, rate * 125000

    def due(self, count, delay):
        """When `count` bytes that come now have arrived."""
        self.bytes += count
        now = time.monotonic()
        self.free = max(self.free, now) + (count / self.rate if self.rate else 0)
        return self.free + delay


class Relay:
    def __init__(self, port, delay, rate):
        self.port, self.delay = port, delay / 1000
        self.up, self.down = Line(rate), Line(rate)
        self.trips = self.connections = 0
        self.log = os.environ.get("ZEV_RELAY_LOG")

    def trip(self, block):
        self.trips += 1
        if self.log:
            with open(self.log, "a") as log:
                first = block.split(b"\r\n", 1)[0][:100].decode("ascii", "replace")
                log.write("%d %d %s\n" % (self.up.bytes, self.down.bytes, first))

    async def take(self, reader, line, queue, state, up):
        """Reads one way, and says when each block is due. The queue's bound is the line's buffer:
        who sends faster than the line waits, as before a full window."""
        while block := await reader.read(BLOCK):
            extra = 0
            if not state["open"]:
                state["open"], extra = True, self.delay if up else self.delay * 1.5
                self.trips += not up
            if up and state["answered"]:
                self.trip(block)
            state["answered"] = not up
            await queue.put((line.due(len(block), self.delay / 2 + extra), block))
        await queue.put((time.monotonic() + self.delay / 2, b""))

    async def give(self, writer, queue):
        while True:
            due, block = await queue.get()
            if self.delay or self.up.rate:
                await asyncio.sleep(due - time.monotonic())
            if not block:
                break
            writer.write(block)
            await writer.drain()
        if writer.can_write_eof():
            writer.write_eof()

    async def carry(self, reader, writer):
        self.connections += 1
        self.trips += 1
        try:
            far_reader, far_writer = await asyncio.open_connection("127.0.0.1", self.port)
        except OSError:
            writer.close()
            return
        state = {"answered": True, "open": False}
        ways = []
        for source, sink, line, up in ((reader, far_writer, self.up, True),
                                       (far_reader, writer, self.down, False)):
            queue = asyncio.Queue(8)
            ways += [self.take(source, line, queue, state, up), self.give(sink, queue)]
        await asyncio.gather(*ways, return_exceptions=True)
        for end in (far_writer, writer):
            end.close()


def run(command, done):
    """The command, in a thread of its own: wait4 tells its memory, and no other child's."""
    began = time.monotonic()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    done((time.monotonic() - began) * 1000, usage.ru_maxrss, child.returncode)


async def main(listen, to, delay, rate, *command):
    relay = Relay(int(to), float(delay), float(rate))
    loop = asyncio.get_running_loop()
    ended = loop.create_future()
    server = await asyncio.start_server(relay.carry, "127.0.0.1", int(listen))

    def tell(*result):
        loop.call_soon_threadsafe(ended.set_result, result)

    threading.Thread(target=run, args=(command, tell), daemon=True).start()
    ms, memory, code = await ended
    server.close()
    print("%.1f %d %d %d %d %d" % (ms, memory, relay.up.bytes, relay.down.bytes, relay.trips,
                                   relay.connections))
    sys.stdout.flush()
    os._exit(code)  # connections that the command left open end here


if len(sys.argv) < 6:
    sys.exit(__doc__)
asyncio.run(main(*sys.argv[1:]))
