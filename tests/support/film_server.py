#!/usr/bin/env python3
"""Serves one file over HTTP on the loopback interface, for tests of the player's download.

Every request gets the whole file (whatever the path). Prints "port N" on its first line of stdout,
then one line per request: "start <path>" when it begins and "sent <bytes>" when it ends (also when
the client went away), so a test can tell how often and how far the film was fetched.

  film_server.py FILE [--throttle BYTES_PER_S] [--stall-after N] [--close-after N] [--block N]
                 [--port-file PATH] [--log PATH] [--exit-on-stdin-eof]

--throttle     send at about this rate (default: as fast as possible)
--stall-after  after N bytes, stop sending and hold the connection open until the client leaves
--close-after  after N bytes, close the connection (the response is then short of its length)
--block        bytes per write (default 4096)
--status       answer every request with this HTTP status and its reason phrase, and no film
--redirect-loop  answer every request with a redirect to the next of /loop1, /loop2, ... without end
--port-file    also write the port number to PATH (written whole, once listening)
--log          write the request lines to PATH instead of stdout
--exit-on-stdin-eof  end when standard input closes (a test that started the server with a pipe
               ends it by closing the pipe)
"""
import argparse
import http.server
import os
import socket
import sys
import threading
import time


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("file")
    parser.add_argument("--throttle", type=int, default=0)
    parser.add_argument("--stall-after", type=int, default=-1)
    parser.add_argument("--close-after", type=int, default=-1)
    parser.add_argument("--block", type=int, default=4096)
    parser.add_argument("--status", type=int, default=0)
    parser.add_argument("--redirect-loop", action="store_true")
    parser.add_argument("--port-file")
    parser.add_argument("--log")
    parser.add_argument("--exit-on-stdin-eof", action="store_true")
    options = parser.parse_args()
    with open(options.file, "rb") as f:
        body = f.read()
    log_lock = threading.Lock()

    log_file = open(options.log, "a", buffering=1) if options.log else sys.stdout

    def log(line):
        with log_lock:
            print(line, file=log_file, flush=True)

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.0"

        def log_message(self, *args):
            pass

        def do_GET(self):
            log(f"start {self.path}")
            sent = 0
            if options.status:
                self.send_response(options.status)
                self.send_header("Content-Length", "0")
                self.end_headers()
                log(f"sent {sent}")
                return
            if options.redirect_loop:
                number = int(self.path[5:]) if self.path.startswith("/loop") and self.path[5:].isdigit() else 0
                self.send_response(302)
                self.send_header("Location", f"/loop{number + 1}")
                self.send_header("Content-Length", "0")
                self.end_headers()
                log(f"sent {sent}")
                return
            try:
                self.send_response(200)
                self.send_header("Content-Type", "application/octet-stream")
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                began = time.monotonic()
                while sent < len(body):
                    if options.stall_after >= 0 and sent >= options.stall_after:
                        # Hold the connection until the client closes it.
                        self.connection.settimeout(0.2)
                        while True:
                            try:
                                if self.connection.recv(1) == b"":
                                    break
                            except socket.timeout:
                                continue
                        break
                    if options.close_after >= 0 and sent >= options.close_after:
                        break
                    end = len(body)
                    for limit in (options.stall_after, options.close_after):
                        if limit >= 0:
                            end = min(end, limit)
                    end = min(end, sent + options.block)
                    self.wfile.write(body[sent:end])
                    self.wfile.flush()
                    sent = end
                    if options.throttle > 0:
                        due = began + sent / options.throttle
                        pause = due - time.monotonic()
                        if pause > 0:
                            time.sleep(pause)
            except (BrokenPipeError, ConnectionResetError, OSError):
                pass
            log(f"sent {sent}")

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    port = server.server_address[1]
    print(f"port {port}", flush=True)
    if options.port_file:
        with open(options.port_file + ".part", "w") as f:
            f.write(f"{port}\n")
        os.replace(options.port_file + ".part", options.port_file)
    if options.exit_on_stdin_eof:
        def watch():
            sys.stdin.buffer.read()
            os._exit(0)
        threading.Thread(target=watch, daemon=True).start()
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
