"""A backend in a box: certificates, OCSP responders, broker and HTTP(S) backend on loopback, which can misbehave.

bench.box.Bench is all of it in one object; bench/bench.py is the command. docs/bench.md tells how to try a unit on it.
"""
