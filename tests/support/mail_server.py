"""A mail server at port 2525, content with everything; it serves until the sandbox ends."""
import os, socketserver


class Mail(socketserver.StreamRequestHandler):
    def handle(self):
        self.wfile.write(b"220 ready\r\n")
        for _ in self.rfile:
            self.wfile.write(b"250 ok\r\n")


server = socketserver.ThreadingTCPServer(("127.0.0.1", 2525), Mail)
server.handle_error = lambda *_: None  # a client that went away
if os.fork() == 0:
    server.serve_forever()
