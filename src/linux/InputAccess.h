#pragma once

// Whether Kestrix may take over the pointer on this machine.
namespace kestrix::InputAccess {

// True when this process can write /dev/uinput and read every pointer event node that the backend
// would grab (vacuously true for the nodes when no mouse is plugged in). No prompt, no side effect.
bool isGranted();

} // namespace kestrix::InputAccess
