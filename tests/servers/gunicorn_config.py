"""Settings of gunicorn for httpbin; gunicorn reads them by name."""

import processes

worker_class = "gthread"
threads = 2


def post_fork(server, worker):
    processes.die_with_parent(server.pid)
