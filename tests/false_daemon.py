#!/usr/bin/python3
"""Poses as the daemon, with rows that are not there, and ends while it is asked: false_daemon.py SOCKET ROWS TURN

Answers ROWS requests with the request itself, in which the last number counts up, and begins at 0 again each TURN.
"""

import socket
import struct
import sys

path, rows, turn = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
server = socket.socket(socket.AF_UNIX)
server.bind(path)
server.listen()
for row in range(rows):
    peer = server.accept()[0]
    peer.sendall(peer.recv(2000)[:-4] + struct.pack("i", row % turn))
    peer.close()
peer = server.accept()[0]
