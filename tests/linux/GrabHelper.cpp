// Another running copy of Kestrix for the kernel tests: takes over every mouse, prints one line per
// device ("device <node> twin <twin node>"), then "ready", and runs until it is killed.

#include "engine/GrabScrollManager.h"
#include "linux/InputThread.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    kestrix::InputThread input;
    input.start();
    bool started = false;
    input.runOnInputThread(
        [&](kestrix::GrabScrollManager &engine, kestrix::LinuxInputBackend &) { started = engine.isStarted(); });
    for (const auto &device : input.devices())
        std::printf("device %s twin %s\n", qPrintable(device.node), qPrintable(device.twinNode));
    std::printf(started ? "ready\n" : "failed\n");
    std::fflush(stdout);
    return started ? app.exec() : 1;
}
