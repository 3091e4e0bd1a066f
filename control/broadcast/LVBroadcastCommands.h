#pragma once
// The control socket's recording and streaming commands:
//   {"command": "startRecord", "path": "/optional/file.mp4"}   {"command": "stopRecord"}
//   {"command": "startStream", "url": "rtmp://optional/app/key"} {"command": "stopStream"}
//   {"command": "get", "property": "recordStatus"} / "streamStatus"
class LVBroadcaster;
class LVControlCommands;

// broadcaster must outlive commands.
void LVAddBroadcastCommands(LVControlCommands& commands, LVBroadcaster& broadcaster);
