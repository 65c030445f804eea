#!/usr/bin/python3
"""A small gNMI client for the end-to-end tests, on Debian's python3-grpcio with stubs
generated from our Gnmi/gnmi.proto (GNMI_PY_DIR on sys.path).

Prints one JSON object per line and flushes each, so a test can follow a stream:
  {"update": {"timestamp": N, "prefix": "/...", "update": {"rel/path": value, ...},
              "delete": ["rel/path", ...]}}
  {"sync": true}
  {"error": {"code": "INVALID_ARGUMENT", "details": "..."}}     (then exit status 1)

  gnmi_client.py TARGET capabilities
  gnmi_client.py TARGET get PATH... [--encoding json|json_ietf|proto] [--type all|config]
  gnmi_client.py TARGET set [--update PATH=JSON]... [--replace PATH=JSON]... [--delete PATH]...
  gnmi_client.py TARGET subscribe PATH... [--mode stream|once|poll]
        [--sub target_defined|on_change|sample] [--sample-ms N] [--heartbeat-ms N]
        [--suppress] [--updates-only] [--polls N] [--seconds S] [--never-read]
  gnmi_client.py TARGET big-get BYTES        (a request larger than BYTES)
Any of them over TLS: --ca CA.pem [--cert CERT.pem --key KEY.pem].
Paths: /a/b[k=v]/c, "origin:/a/b"; a path element "" (written //) is sent as is.
"""
import argparse
import json
import os
import queue
import sys
import threading
import time

sys.path.insert(0, os.environ.get("GNMI_PY_DIR", "."))
import grpc  # noqa: E402
from Gnmi import gnmi_pb2, gnmi_pb2_grpc  # noqa: E402


def out(obj):
    sys.stdout.write(json.dumps(obj, sort_keys=True) + "\n")
    sys.stdout.flush()


def parse_path(text):
    p = gnmi_pb2.Path()
    if not text.startswith("/") and ":" in text.split("/")[0]:
        p.origin, text = text.split(":", 1)
    if text in ("", "/"):
        return p
    body = text[1:] if text.startswith("/") else text
    i = 0
    name = ""
    elem = None
    while i <= len(body):
        c = body[i] if i < len(body) else "/"
        if c == "/":
            if elem is None:
                elem = p.elem.add()
                elem.name = name
            name, elem = "", None
            i += 1
        elif c == "[":
            if elem is None:
                elem = p.elem.add()
                elem.name = name
            end = body.index("]", i)
            k, v = body[i + 1:end].split("=", 1)
            elem.key[k] = v
            i = end + 1
        else:
            name += c
            i += 1
    return p


def path_text(p):
    parts = []
    for e in p.elem:
        parts.append(e.name + "".join("[%s=%s]" % (k, e.key[k]) for k in sorted(e.key)))
    return "/".join(parts)


def value(tv):
    kind = tv.WhichOneof("value")
    if kind is None:
        return None
    v = getattr(tv, kind)
    if kind in ("json_val", "json_ietf_val"):
        return json.loads(v)
    if kind == "leaflist_val":
        return [value(e) for e in v.element]
    if kind == "bytes_val":
        return v.hex()
    return v


def notification(n):
    return {"timestamp": n.timestamp, "prefix": "/" + path_text(n.prefix),
            "update": {path_text(u.path): value(u.val) for u in n.update},
            "delete": [path_text(d) for d in n.delete]}


def typed(text):
    tv = gnmi_pb2.TypedValue()
    v = json.loads(text)
    if isinstance(v, bool):
        tv.bool_val = v
    elif isinstance(v, int):
        if v < 0:
            tv.int_val = v
        else:
            tv.uint_val = v
    elif isinstance(v, str):
        tv.string_val = v
    else:
        tv.json_ietf_val = text.encode()
    return tv


def split_assignment(item):
    """PATH=JSON, where PATH may hold '=' inside its keys' brackets."""
    depth = 0
    for i, c in enumerate(item):
        depth += c == "["
        depth -= c == "]"
        if c == "=" and depth == 0:
            return item[:i], item[i + 1:]
    sys.exit("expected PATH=JSON: " + item)


def fail(e):
    out({"error": {"code": e.code().name, "details": e.details()}})
    sys.exit(1)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("target")
    ap.add_argument("op")
    ap.add_argument("paths", nargs="*")
    ap.add_argument("--encoding", default="json_ietf")
    ap.add_argument("--type", default="all")
    ap.add_argument("--update", action="append", default=[])
    ap.add_argument("--replace", action="append", default=[])
    ap.add_argument("--delete", action="append", default=[])
    ap.add_argument("--mode", default="stream")
    ap.add_argument("--sub", default="target_defined")
    ap.add_argument("--sample-ms", type=int, default=0)
    ap.add_argument("--heartbeat-ms", type=int, default=0)
    ap.add_argument("--suppress", action="store_true")
    ap.add_argument("--updates-only", action="store_true")
    ap.add_argument("--polls", type=int, default=0)
    ap.add_argument("--seconds", type=float, default=10)
    ap.add_argument("--never-read", action="store_true")
    ap.add_argument("--ca", help="TLS: trust this CA (PEM) for the server")
    ap.add_argument("--cert", help="TLS: our certificate (PEM)")
    ap.add_argument("--key", help="TLS: our private key (PEM)")
    a = ap.parse_args()

    # A client that never reads keeps gRPC's default receive window (64 KiB): without the
    # bandwidth probe the window does not grow, so the server soon has to hold back.
    options = [("grpc.http2.bdp_probe", 0), ("grpc.http2.lookahead_bytes", 16384)] if a.never_read else []
    if a.ca:
        def pem(path):
            return open(path, "rb").read() if path else None
        creds = grpc.ssl_channel_credentials(pem(a.ca), pem(a.key), pem(a.cert))
        channel = grpc.secure_channel(a.target, creds, options=options)
    else:
        channel = grpc.insecure_channel(a.target, options=options)
    stub = gnmi_pb2_grpc.gNMIStub(channel)
    enc = gnmi_pb2.Encoding.Value(a.encoding.upper())
    try:
        if a.op == "capabilities":
            r = stub.Capabilities(gnmi_pb2.CapabilityRequest(), timeout=10)
            out({"version": r.gNMI_version,
                 "models": [m.name for m in r.supported_models],
                 "encodings": [gnmi_pb2.Encoding.Name(e) for e in r.supported_encodings]})
        elif a.op == "get":
            req = gnmi_pb2.GetRequest(encoding=enc,
                                      type=gnmi_pb2.GetRequest.DataType.Value(a.type.upper()))
            for p in a.paths:
                req.path.append(parse_path(p))
            for n in stub.Get(req, timeout=10).notification:
                out({"update": notification(n)})
        elif a.op == "big-get":
            req = gnmi_pb2.GetRequest(encoding=enc)
            p = req.path.add()
            p.elem.add().name = "x" * int(a.paths[0])
            stub.Get(req, timeout=10)
            out({"ok": True})
        elif a.op == "set":
            req = gnmi_pb2.SetRequest()
            for d in a.delete:
                req.delete.append(parse_path(d))
            for field, items in (("update", a.update), ("replace", a.replace)):
                for item in items:
                    p, v = split_assignment(item)
                    getattr(req, field).add(path=parse_path(p), val=typed(v))
            r = stub.Set(req, timeout=10)
            out({"ok": True, "results": len(r.response)})
        elif a.op == "subscribe":
            subscribe(stub, a, enc)
        else:
            sys.exit("unknown operation " + a.op)
    except grpc.RpcError as e:
        fail(e)


def subscribe(stub, a, enc):
    # A number sends a mode the protocol does not have.
    mode = int(a.mode) if a.mode.isdigit() else gnmi_pb2.SubscriptionList.Mode.Value(a.mode.upper())
    sl = gnmi_pb2.SubscriptionList(mode=mode, encoding=enc, updates_only=a.updates_only)
    for p in a.paths:
        sl.subscription.add(path=parse_path(p),
                            mode=gnmi_pb2.SubscriptionMode.Value(a.sub.upper()),
                            sample_interval=a.sample_ms * 1000000,
                            heartbeat_interval=a.heartbeat_ms * 1000000,
                            suppress_redundant=a.suppress)
    requests = queue.Queue()
    requests.put(gnmi_pb2.SubscribeRequest(subscribe=sl))

    def gen():
        while True:
            r = requests.get()
            if r is None:
                return
            yield r

    # A client that never reads looks at the stream only after `seconds`: its deadline is
    # later, so that what it then reads is the server's verdict, not its own deadline.
    call = stub.Subscribe(gen(), timeout=a.seconds + (20 if a.never_read else 0))
    if a.never_read:
        out({"subscribed": True})
        time.sleep(a.seconds)
        try:
            for _ in call:
                pass
        except grpc.RpcError as e:
            fail(e)
        return
    polls = a.polls
    try:
        for r in call:
            kind = r.WhichOneof("response")
            if kind == "update":
                out({"update": notification(r.update)})
            elif kind == "sync_response":
                out({"sync": r.sync_response})
                if polls > 0:
                    polls -= 1
                    requests.put(gnmi_pb2.SubscribeRequest(poll=gnmi_pb2.Poll()))
        out({"end": "OK"})
    except grpc.RpcError as e:
        if e.code() == grpc.StatusCode.DEADLINE_EXCEEDED:
            out({"end": "deadline"})
            return
        fail(e)
    finally:
        requests.put(None)


if __name__ == "__main__":
    main()
