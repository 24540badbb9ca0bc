#!/usr/bin/env python3
"""A slow holder of an IPv4 address, for bench/failover: answers every ARP
request for ADDRESS on IFNAME, an RFC 5227 probe (sender 0.0.0.0) included,
DELAY_MS after it arrived, the way the kernel answers one (a unicast reply
to the asker's MAC, naming ADDRESS as sender). The kernel of this namespace
does not hold ADDRESS, so these replies are the only ones.

usage: arp_holder.py IFNAME ADDRESS DELAY_MS LOG

Each answer is logged as "<ms from request to reply sent>". Runs until
killed.
"""
import heapq
import select
import socket
import struct
import sys
import time

ETH_P_ARP = 0x0806


def main():
    ifname, address, delay_ms, log_path = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
    want = socket.inet_aton(address)
    sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ARP))
    sock.bind((ifname, ETH_P_ARP))
    own_mac = sock.getsockname()[4][:6]
    pending = []  # (due, arrived, frame)
    with open(log_path, "a", buffering=1) as log:
        print("ready", flush=True)
        while True:
            wait = None
            if pending:
                wait = max(0.0, pending[0][0] - time.monotonic())
            readable, _, _ = select.select([sock], [], [], wait)
            if readable:
                frame = sock.recv(2048)
                arrived = time.monotonic()
                reply = answer(frame, want, own_mac)
                if reply is not None:
                    heapq.heappush(pending, (arrived + delay_ms / 1000.0, arrived, reply))
            now = time.monotonic()
            while pending and pending[0][0] <= now:
                _, arrived, reply = heapq.heappop(pending)
                sock.send(reply)
                log.write("%.3f\n" % ((time.monotonic() - arrived) * 1000.0))


def answer(frame, want, own_mac):
    """The reply frame to an ARP request for WANT, or None."""
    if len(frame) < 42:
        return None
    htype, ptype, hlen, plen, op = struct.unpack("!HHBBH", frame[14:22])
    sha, spa, tpa = frame[22:28], frame[28:32], frame[38:42]
    if (htype, ptype, hlen, plen, op) != (1, 0x0800, 6, 4, 1) or tpa != want:
        return None
    if sha == own_mac:
        return None
    eth = sha + own_mac + struct.pack("!H", ETH_P_ARP)
    arp = struct.pack("!HHBBH", 1, 0x0800, 6, 4, 2) + own_mac + want + sha + spa
    return eth + arp


if __name__ == "__main__":
    main()
