// What the backend decides without a kernel: which devices it takes over, from their capabilities
// (a mistake either grabs a keyboard, typing through Kestrix, or a touchpad, a dead touchpad); a
// mouse's MOUSE_DPI; scroll amounts as wheel events.

#include "linux/MouseDpi.h"
#include "linux/PointerDeviceFilter.h"
#include "linux/WheelEncoder.h"

#include <QTest>

#include <libevdev/libevdev.h>

#include <map>
#include <tuple>

using namespace kestrix;
using namespace Qt::StringLiterals;
using DeviceVerdict = PointerDeviceFilter::Verdict;

namespace {

// Wheel totals by REL_ code.
using Sums = std::map<unsigned int, std::int64_t>;

void add(Sums &sums, const WheelEncoder::Frame &frame, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        if (frame[i].type == EV_REL)
            sums[frame[i].code] += frame[i].value;
    }
}

} // namespace

class EvdevMappingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void capabilities()
    {
        // A mouse; no right button; a touchpad; keys and motion on one node; media keys on a mouse (any
        // key makes udev's ID_INPUT_KEY, which keeps the udev rule from opening the node: judged alike);
        // side and extra buttons are no keys; our twin, with and without a source phys.
        const QList<int> mouse { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE };
        const std::tuple<QList<int>, bool, QByteArray, DeviceVerdict> rows[]
            = { { mouse, false, "usb-0000:00:14.0-1/input0", DeviceVerdict::Pointer },
                  { { BTN_LEFT }, false, {}, DeviceVerdict::Other }, { mouse, true, {}, DeviceVerdict::Other },
                  { mouse + QList<int> { KEY_A, KEY_Q, KEY_Z }, false, {}, DeviceVerdict::PointerKeyboard },
                  { mouse + QList<int> { KEY_VOLUMEUP, KEY_VOLUMEDOWN }, false, {}, DeviceVerdict::PointerKeyboard },
                  { mouse + QList<int> { BTN_SIDE, BTN_EXTRA }, false, {}, DeviceVerdict::Pointer },
                  { mouse, false, "kestrix-4B657374726978/usb-1/input0", DeviceVerdict::KestrixTwin },
                  { mouse, false, PointerDeviceFilter::twinPhys(nullptr).c_str(), DeviceVerdict::KestrixTwin } };
        for (const auto &row : rows) {
            const auto &[keys, absolute, phys, verdict] = row;
            libevdev *device = libevdev_new();
            for (const int code : { REL_X, REL_Y, REL_WHEEL })
                libevdev_enable_event_code(device, EV_REL, static_cast<unsigned int>(code), nullptr);
            for (const int key : keys)
                libevdev_enable_event_code(device, EV_KEY, static_cast<unsigned int>(key), nullptr);
            if (absolute) {
                const input_absinfo axis { 0, 0, 1000, 0, 0, 10 };
                libevdev_enable_event_code(device, EV_ABS, ABS_X, &axis);
                libevdev_enable_event_code(device, EV_ABS, ABS_Y, &axis);
            }
            if (!phys.isEmpty())
                libevdev_set_phys(device, phys.constData());
            const DeviceVerdict actual = PointerDeviceFilter::classify(device);
            libevdev_free(device);
            QVERIFY2(actual == verdict, qPrintable(u"row %1"_s.arg(&row - rows)));
        }
    }

    // The kernel test reads "400@125", "800@1000 *16000@1000" and "fast" through udev.
    void mouseDpi()
    {
        // Plain, a starred default with and without rates, no star takes the first, extra blanks; then
        // refused (0): zero, negative, absurd, empty, a bad rate, garbage in the list, two defaults,
        // trailing junk.
        const std::pair<const char *, int> rows[] = { { "800", 800 }, { "400@125 *800@125 1600@125", 800 },
            { "*500 1000 1500", 500 }, { "400 800", 400 }, { "  1600@500  ", 1600 }, { "0", 0 }, { "-800", 0 },
            { "5000000", 0 }, { "", 0 }, { "800@", 0 }, { "400 *800 x", 0 }, { "*400 *800", 0 }, { "800dpi", 0 } };
        for (const auto &[text, dpi] : rows)
            QVERIFY2(MouseDpi::parse(text).value_or(0) == dpi, text);
    }

    // A turn of direction starts a fresh detent: after about 100 units down, three times about 100
    // up make two clicks up; the remainder of the way down does not eat into them. Nothing is
    // written for a zero event (a phase boundary), and a value evdev cannot carry is refused rather
    // than cut down.
    void directionChangeZeroAndTooMuch()
    {
        WheelEncoder encoder;
        Sums sums;
        WheelEncoder::Frame frame {};
        const int hundredUnits = 55 * 100 / 120; // pixels that make about 100 units
        for (int sign : { 1, -1, -1, -1 }) {
            const std::size_t length = encoder.encode(ScrollUnit::Pixel, sign * hundredUnits, 0, frame).value();
            add(sums, frame, length);
        }
        QCOMPARE(sums[REL_WHEEL], -2);

        encoder = WheelEncoder();
        QCOMPARE(encoder.encode(ScrollUnit::Pixel, 0, 0, frame), std::optional<std::size_t>(0));
        QCOMPARE(encoder.encode(ScrollUnit::Line, 60'000'000, 0, frame), std::nullopt);
        QCOMPARE(encoder.encode(ScrollUnit::Pixel, 0, -2'000'000'000, frame), std::nullopt);
        // The refusal left no trace: the next small steps are whole. A line is a third of a detent.
        sums.clear();
        for (int line = 0; line < 3; ++line)
            add(sums, frame, encoder.encode(ScrollUnit::Line, 1, 0, frame).value());
        QCOMPARE(sums[REL_WHEEL_HI_RES], 120);
        QCOMPARE(sums[REL_WHEEL], 1);
    }
};

QTEST_APPLESS_MAIN(EvdevMappingTest)
#include "EvdevMappingTest.moc"
