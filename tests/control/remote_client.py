#!/usr/bin/python3
"""Drives a running Lumaveil's remote control through a client library written by others.

usage: remote_client.py PORT PASSWORD
Prints one JSON object per step. Exit status: 0 done, 3 not identified, 1 anything else.
"""
import asyncio
import json
import sys

import simpleobsws


async def drive(port, password):
    client = simpleobsws.WebSocketClient(url=f"ws://127.0.0.1:{port}", password=password)
    try:
        await client.connect()
        identified = await client.wait_until_identified(timeout=10)
    except Exception as error:  # the server may close before the library has finished its side
        print(json.dumps({"refused": str(error)}))
        return 3
    if not identified:
        print(json.dumps({"refused": "not identified"}))
        return 3

    program_changes = asyncio.Queue()

    async def on_program_change(*arguments):
        await program_changes.put(arguments[-1])

    client.register_event_callback(on_program_change, "CurrentProgramSceneChanged")

    async def call(request_type, data=None):
        response = await client.call(simpleobsws.Request(request_type, data))
        if not response.ok():
            raise RuntimeError(f"{request_type} failed: {response.requestStatus}")
        return response.responseData or {}

    scenes = await call("GetSceneList")
    print(json.dumps({"scenes": [scene["sceneName"] for scene in scenes["scenes"]]}), flush=True)
    await call("SetCurrentPreviewScene", {"sceneName": "Intro"})
    preview = await call("GetCurrentPreviewScene")
    print(json.dumps({"preview": preview["sceneName"]}), flush=True)
    await call("TriggerStudioModeTransition")
    change = await asyncio.wait_for(program_changes.get(), 30)
    print(json.dumps({"program": change["sceneName"]}), flush=True)
    await client.disconnect()
    return 0


if __name__ == "__main__":
    sys.exit(asyncio.run(drive(int(sys.argv[1]), sys.argv[2])))
