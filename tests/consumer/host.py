# SPDX-License-Identifier: MIT
"""The main job from Python, by ctypes. Takes the library and options for mvl_start."""
import ctypes
import json
import sys

library = ctypes.CDLL(sys.argv[1])
library.mvl_error.restype = ctypes.c_char_p
CALL = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p)
RELEASE = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Callback(ctypes.Structure):  # both kinds have this shape
    _fields_ = [("call", CALL), ("user", ctypes.c_void_p), ("release", RELEASE)]


def call(name, *arguments):
    if getattr(library, name)(*arguments) != 0:
        raise RuntimeError(f"{name}: {library.mvl_error().decode()}")


def completed(_user, answer, error):
    answers.append(json.loads(answer or error))
    call("mvl_stop")


answers = []
completion = Callback(CALL(completed), None, RELEASE())
manager = ctypes.c_void_p()
call("mvl_start", sys.argv[2].encode(), Callback(), Callback())
call("mvl_manager_create", None, ctypes.byref(manager))
call("mvl_collect", manager, b'{"from": "Python"}', 1, completion)
call("mvl_run")
tags = ctypes.c_char_p()
call("mvl_query_string", json.dumps(answers[0]["tags"]).encode(), ctypes.byref(tags))
print(tags.value.decode())
library.mvl_free(tags)
library.mvl_manager_destroy(manager)
call("mvl_shutdown")
