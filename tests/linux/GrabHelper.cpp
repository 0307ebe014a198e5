// Another running copy of Kestrix for the kernel tests: takes over every mouse, prints one line per
// device ("device <node> twin <twin node>"), then "ready", and runs until it is killed.

#include "engine/GrabScrollManager.h"
#include "linux/LinuxInputBackend.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    kestrix::LinuxInputBackend backend;
    kestrix::GrabScrollManager engine(backend, backend, backend);
    backend.setEngine(&engine);
    engine.start();
    for (const auto &device : backend.devices())
        std::printf("device %s twin %s\n", qPrintable(device.node), qPrintable(device.twinNode));
    std::printf(engine.isStarted() ? "ready\n" : "failed\n");
    std::fflush(stdout);
    return engine.isStarted() ? app.exec() : 1;
}
