// The engine's cost per input event, and proof that the event path allocates nothing.
//
// Run with no arguments for wall time per event, or with -callgrind for instruction counts that do
// not depend on what else the machine is doing.

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/GrabScrollManager.h"

#include <QTest>

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<long> allocationCount { 0 };

} // namespace

// Every heap allocation of the process, Qt's included (QArrayData calls malloc directly, not
// operator new), passes through these: glibc lets the program interpose them and offers the real
// ones under their __libc_ names.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);

void *malloc(std::size_t size) noexcept
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void *calloc(std::size_t count, std::size_t size) noexcept
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
void *realloc(void *memory, std::size_t size) noexcept
{
    allocationCount.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}
}

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

// A platform that takes every event and does nothing with it, so only the engine is measured.
class NullPlatform final : public InputHook, public EventPoster, public RepeatingTimer
{
public:
    bool install() override { return true; }
    void uninstall() override { }
    void reenable() override { }
    std::optional<PointerLocation> currentPointerLocation() override { return std::nullopt; }
    bool postScroll(const ScrollEvent &event) override
    {
        sink = sink + event.vertical + event.horizontal;
        return true;
    }
    bool postRightClick(PointerLocation, std::uint64_t) override { return true; }
    void start(std::chrono::milliseconds) override { }
    void cancel() override { }

    volatile std::int64_t sink = 0;
};

PointerEvent drag(double dx, double dy)
{
    PointerEvent event;
    event.type = PointerEventType::RightMouseDragged;
    event.deltaX = dx;
    event.deltaY = dy;
    return event;
}

PointerEvent button(PointerEventType type)
{
    PointerEvent event;
    event.type = type;
    return event;
}

constexpr int steadyStateEvents = 100000;

} // namespace

class EngineBench : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void passThroughDrag()
    {
        NullPlatform platform;
        GrabScrollManager engine(platform, platform);
        engine.start();
        const PointerEvent event = drag(1.0, 1.0);
        QBENCHMARK { engine.handleEvent(event, platform); }
    }

    void scrollStep()
    {
        NullPlatform platform;
        GrabScrollManager engine(platform, platform);
        engine.start();
        engine.handleEvent(button(PointerEventType::RightMouseDown), platform);
        engine.handleEvent(drag(0.0, 6.0), platform);
        const PointerEvent event = drag(0.5, 2.0);
        QBENCHMARK { engine.handleEvent(event, platform); }
    }

    void momentumTick()
    {
        NullPlatform platform;
        GrabScrollManager engine(platform, platform);
        engine.start();
        // A flick fast enough that momentum outlasts every measured tick: velocity decays by 0.97
        // per tick, so it is restarted whenever it has run down.
        auto flick = [&] {
            engine.handleEvent(button(PointerEventType::RightMouseDown), platform);
            engine.handleEvent(drag(0.0, 1e6), platform);
            engine.handleEvent(button(PointerEventType::RightMouseUp), platform);
        };
        flick();
        QBENCHMARK
        {
            if (!engine.isMomentumRunning())
                flick();
            engine.momentumTick(platform);
        }
    }

    // The proof below is only worth something if the counter sees Qt's own allocations.
    void allocationCounterSeesQtAllocations()
    {
        const long before = allocationCount.load();
        const QString text = QString::number(1234567890) + u" points"_s;
        QVERIFY(allocationCount.load() > before);
        QVERIFY(!text.isEmpty());
    }

    // Not a QBENCHMARK: each path runs a fixed number of events once and counts allocations.
    void steadyStateAllocatesNothing()
    {
        NullPlatform platform;
        GrabScrollManager engine(platform, platform);
        engine.start();
        const PointerEvent step = drag(0.5, 2.0);
        reportAllocations("pass-through drag", [&] { engine.handleEvent(step, platform); });

        engine.handleEvent(button(PointerEventType::RightMouseDown), platform);
        engine.handleEvent(drag(0.0, 6.0), platform);
        reportAllocations("scroll step", [&] { engine.handleEvent(step, platform); });

        engine.handleEvent(button(PointerEventType::RightMouseUp), platform);
        reportAllocations("momentum tick", [&] {
            if (!engine.isMomentumRunning()) {
                engine.handleEvent(button(PointerEventType::RightMouseDown), platform);
                engine.handleEvent(drag(0.0, 1e6), platform);
                engine.handleEvent(button(PointerEventType::RightMouseUp), platform);
            }
            engine.momentumTick(platform);
        });
    }

private:
    template<typename Step> static void reportAllocations(const char *what, Step step)
    {
        for (int i = 0; i < 1000; ++i) // warm up
            step();
        const long before = allocationCount.load();
        for (int i = 0; i < steadyStateEvents; ++i)
            step();
        const long allocations = allocationCount.load() - before;
        qInfo("%s: %ld heap allocations in %d events in steady state", what, allocations, steadyStateEvents);
        QCOMPARE(allocations, 0L);
    }
};

QTEST_GUILESS_MAIN(EngineBench)
#include "EngineBench.moc"
