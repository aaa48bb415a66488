"""A local FTP server for the attach tests.

Serves one folder read-only to one account on 127.0.0.1, on a free port
that it prints on its first line, until it is killed.
Usage: ftpserver.py FOLDER USER PASSWORD
"""
import sys

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import FTPServer

folder, user, password = sys.argv[1:4]
authorizer = DummyAuthorizer()
authorizer.add_user(user, password, folder, perm="elr")
handler = FTPHandler
handler.authorizer = authorizer
# A refused login answers at once instead of after the usual delay.
handler.auth_failed_timeout = 0.01
server = FTPServer(("127.0.0.1", 0), handler)
print(server.socket.getsockname()[1], flush=True)
server.serve_forever()
