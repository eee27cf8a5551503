"""A gNMI client for tests: stubs over a grpc channel, messages from a .proto that protoc reads."""
import importlib
import os
import subprocess
import sys
import tempfile

import grpc

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def own_messages():
    """The module of our own .proto."""
    out = tempfile.mkdtemp(prefix="ptpgnmi-proto-")
    subprocess.run(["protoc", "-I" + SOURCE, "--python_out=" + out, "tools/ptpgnmi/gnmi.proto",
                    "tools/ptpgnmi/gnmi_ext.proto"], cwd=SOURCE, check=True)
    sys.path.insert(0, out)
    return importlib.import_module("tools.ptpgnmi.gnmi_pb2")


gnmi = own_messages()


def path(text, origin="ptplib"):
    """"/a/b[k=v]" as a Path. Keys here may contain "/", but no "]"."""
    made = gnmi.Path(origin=origin)
    elem, depth, elems = "", 0, []
    for c in text[1:] + "/":
        depth += {"[": 1, "]": -1}.get(c, 0)
        if c == "/" and depth == 0:
            elems.append(elem)
            elem = ""
        else:
            elem += c
    for elem in filter(None, elems):
        name, *keys = elem.split("[")
        made.elem.add(name=name, key=dict(k[:-1].split("=", 1) for k in keys))
    return made


def text(path):
    return "".join("/" + e.name + "".join("[%s=%s]" % k for k in sorted(e.key.items()))
                   for e in path.elem)


class Client:
    def __init__(self, channel):
        def method(name, request, response, kind="unary_unary"):
            return getattr(channel, kind)("/gnmi.gNMI/" + name,
                                          request_serializer=request.SerializeToString,
                                          response_deserializer=response.FromString)
        self.capabilities = method("Capabilities", gnmi.CapabilityRequest, gnmi.CapabilityResponse)
        self.get = method("Get", gnmi.GetRequest, gnmi.GetResponse)
        self.set = method("Set", gnmi.SetRequest, gnmi.SetResponse)
        self.subscribe = method("Subscribe", gnmi.SubscribeRequest, gnmi.SubscribeResponse,
                                "stream_stream")


def subscription(paths, mode, each=None, encoding=None, **options):
    made = gnmi.SubscribeRequest()
    made.subscribe.mode = mode
    made.subscribe.encoding = gnmi.PROTO if encoding is None else encoding
    for key, value in options.items():
        setattr(made.subscribe, key, value)
    for p in paths:
        made.subscribe.subscription.add(path=path(p), mode=each or gnmi.ON_CHANGE)
    return made
