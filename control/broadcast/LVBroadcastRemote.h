#pragma once
// Recording and streaming over the remote control: StartRecord, StopRecord, ToggleRecord,
// GetRecordStatus and the streaming equivalents, with RecordStateChanged and
// StreamStateChanged sent when they start and stop.
class LVBroadcaster;
class LVRemoteRequests;

// broadcaster must outlive requests.
void LVAddBroadcastRequests(LVRemoteRequests& requests, LVBroadcaster& broadcaster);
