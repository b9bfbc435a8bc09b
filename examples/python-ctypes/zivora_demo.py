#!/usr/bin/env python3
"""A Python host through ctypes (standard library only): initialises the SDK
against an ad server, caches a placement, shows it once cached, closes the
post-video screen a second after it appears (as a player's button would) and
prints the callbacks it hears until the reward is paid.

    zivora_demo.py --library /usr/local/lib/libzivora.so.0 --server URL [--ca FILE]
"""
import argparse
import ctypes
import sys
import threading
import time

# zivora_screen_action's ZIVORA_SCREEN_ACTION_CLOSE.
CLOSE = 3

PLACEMENT_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p)
FAIL_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_uint64)


class Reward(ctypes.Structure):
    _fields_ = [("reward_id", ctypes.c_char_p), ("app_name", ctypes.c_char_p), ("amount", ctypes.c_int32)]


REWARDS_CALLBACK = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.POINTER(Reward), ctypes.c_size_t)
ERROR_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_uint64)


class Options(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("data_root", ctypes.c_char_p),
        ("application_name", ctypes.c_char_p),
        ("application_version", ctypes.c_char_p),
        ("ad_endpoint", ctypes.c_char_p),
        ("analytics_endpoint", ctypes.c_char_p),
        ("ca_file", ctypes.c_char_p),
        ("limit_ad_tracking", ctypes.c_int),
        ("receipt_file", ctypes.c_char_p),
        ("safe_area_top", ctypes.c_double),
        ("safe_area_left", ctypes.c_double),
        ("safe_area_bottom", ctypes.c_double),
        ("safe_area_right", ctypes.c_double),
        ("main_queue_mode", ctypes.c_int),
        ("screen_width", ctypes.c_int),
        ("screen_height", ctypes.c_int),
    ]


class Callbacks(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("user_data", ctypes.c_void_p),
        ("video_did_cache", PLACEMENT_CALLBACK),
        ("video_did_fail_to_load", FAIL_CALLBACK),
        ("video_window_will_display", PLACEMENT_CALLBACK),
        ("video_window_did_display", PLACEMENT_CALLBACK),
        ("video_did_dismiss", PLACEMENT_CALLBACK),
        ("video_window_will_close", PLACEMENT_CALLBACK),
        ("video_window_did_close", PLACEMENT_CALLBACK),
        ("video_post_view_did_click", PLACEMENT_CALLBACK),
        ("video_receive_reward", PLACEMENT_CALLBACK),
        ("receive_motivated_rewards", REWARDS_CALLBACK),
        ("failed_request_motivated_rewards", ERROR_CALLBACK),
    ]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--library", default="libzivora.so.0")
    parser.add_argument("--server", required=True)
    parser.add_argument("--ca")
    parser.add_argument("--data-dir")
    parser.add_argument("--placement", default="rewarded")
    args = parser.parse_args()

    sdk = ctypes.CDLL(args.library)
    sdk.zivora_version.restype = ctypes.c_char_p
    print("zivora", sdk.zivora_version().decode())

    # ctypes zeroes a new structure, and struct_size tells the SDK how much of
    # it this script declares: the SDK reads only that much. (zivora_options_init
    # would write the library's whole structure, which may be larger than the
    # part declared here.)
    options = Options(struct_size=ctypes.sizeof(Options))
    options.application_name = b"python-host"
    options.ad_endpoint = args.server.encode()
    options.ca_file = args.ca.encode() if args.ca else None
    options.data_root = args.data_dir.encode() if args.data_dir else None
    sdk.zivora_initialize(b"python-app", ctypes.byref(options))

    answered = threading.Event()
    dismissed = threading.Event()

    def on_cache(_, placement):
        print("callback: video_did_cache", placement.decode(), flush=True)
        sdk.zivora_show_video(placement)

    def on_fail(_, placement, error):
        print("callback: video_did_fail_to_load", placement.decode(), error, flush=True)
        answered.set()

    def on_dismiss(_, placement):
        print("callback: video_did_dismiss", placement.decode(), flush=True)
        dismissed.set()

    def on_reward(_, placement):
        print("callback: video_receive_reward", placement.decode(), flush=True)
        answered.set()

    callbacks = Callbacks(struct_size=ctypes.sizeof(Callbacks))
    # The callback objects must outlive the SDK's use of them.
    callbacks.video_did_cache = keep_cache = PLACEMENT_CALLBACK(on_cache)
    callbacks.video_did_fail_to_load = keep_fail = FAIL_CALLBACK(on_fail)
    callbacks.video_did_dismiss = keep_dismiss = PLACEMENT_CALLBACK(on_dismiss)
    callbacks.video_receive_reward = keep_reward = PLACEMENT_CALLBACK(on_reward)
    sdk.zivora_set_callbacks(ctypes.byref(callbacks))
    sdk.zivora_cache_video(args.placement.encode())

    # The player "presses close" a second after the post-video screen appears.
    if dismissed.wait(60) and not answered.is_set():
        time.sleep(1)
        print("closing the post-video screen:", sdk.zivora_perform_screen_action(CLOSE), flush=True)
    ok = answered.wait(30)
    print("placement answered" if ok else "no answer in time", flush=True)
    # No callback may reach Python objects that are about to go.
    sdk.zivora_set_callbacks(None)
    del keep_cache, keep_fail, keep_dismiss, keep_reward
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
