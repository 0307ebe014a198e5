// The two conversions between the engine and evdev, without a kernel: a mouse's MOUSE_DPI, and
// scroll amounts to wheel events.

#include "linux/MouseDpi.h"
#include "linux/WheelEncoder.h"

#include <QTest>

#include <cmath>

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

struct Sums
{
    std::int64_t wheel = 0;
    std::int64_t wheelHiRes = 0;
    std::int64_t hwheel = 0;
    std::int64_t hwheelHiRes = 0;
};

void add(Sums &sums, const WheelEncoder::Frame &frame, std::size_t length)
{
    for (std::size_t i = 0; i < length; ++i) {
        const input_event &event = frame[i];
        if (event.type != EV_REL)
            continue;
        switch (event.code) {
        case REL_WHEEL:
            sums.wheel += event.value;
            break;
        case REL_WHEEL_HI_RES:
            sums.wheelHiRes += event.value;
            break;
        case REL_HWHEEL:
            sums.hwheel += event.value;
            break;
        case REL_HWHEEL_HI_RES:
            sums.hwheelHiRes += event.value;
            break;
        default:
            break;
        }
    }
}

} // namespace

class WheelAndDpiTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mouseDpi_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("dpi"); // 0: rejected

        QTest::newRow("plain") << u"800"_s << 800;
        QTest::newRow("with rate") << u"800@125"_s << 800;
        QTest::newRow("starred default") << u"400@125 *800@125 1600@125"_s << 800;
        QTest::newRow("starred without rates") << u"*500 1000 1500"_s << 500;
        QTest::newRow("no star takes the first") << u"400 800"_s << 400;
        QTest::newRow("extra blanks") << u"  1600@500  "_s << 1600;
        QTest::newRow("16000") << u"16000@1000"_s << 16000;
        QTest::newRow("zero") << u"0"_s << 0;
        QTest::newRow("negative") << u"-800"_s << 0;
        QTest::newRow("absurd") << u"5000000"_s << 0;
        QTest::newRow("words") << u"fast"_s << 0;
        QTest::newRow("empty") << u""_s << 0;
        QTest::newRow("bad rate") << u"800@"_s << 0;
        QTest::newRow("garbage in the list") << u"400 *800 x"_s << 0;
        QTest::newRow("two defaults") << u"*400 *800"_s << 0;
        QTest::newRow("trailing junk") << u"800dpi"_s << 0;
    }
    void mouseDpi()
    {
        QFETCH(QString, text);
        QFETCH(int, dpi);
        const std::string utf8 = text.toStdString();
        QCOMPARE(MouseDpi::parse(utf8).value_or(0), dpi);
    }

    // Pixel amounts: the high-resolution total follows the pixels without drift, legacy clicks
    // follow every full 120, and the horizontal sign is turned so the content follows the engine.
    void pixelSteps_data()
    {
        QTest::addColumn<int>("vertical");
        QTest::addColumn<int>("horizontal");
        QTest::addColumn<int>("steps");

        QTest::newRow("down") << 10 << 0 << 10;
        QTest::newRow("up") << -10 << 0 << 10;
        QTest::newRow("right") << 0 << 10 << 10;
        QTest::newRow("left") << 0 << -10 << 10;
        QTest::newRow("one pixel at a time") << 1 << 1 << 500;
        QTest::newRow("diagonal, large") << 300 << -170 << 7;
    }
    void pixelSteps()
    {
        QFETCH(int, vertical);
        QFETCH(int, horizontal);
        QFETCH(int, steps);

        WheelEncoder encoder;
        Sums sums;
        for (int i = 0; i < steps; ++i) {
            WheelEncoder::Frame frame {};
            const std::optional<std::size_t> length = encoder.encode(ScrollUnit::Pixel, vertical, horizontal, frame);
            QVERIFY(length.has_value());
            if (*length == 0)
                continue;
            const input_event &last = frame[*length - 1];
            QVERIFY(last.type == EV_SYN && last.code == SYN_REPORT);
            // A legacy click never travels without its high-resolution value.
            Sums inFrame;
            add(inFrame, frame, *length);
            if (inFrame.wheel != 0)
                QVERIFY(inFrame.wheelHiRes != 0);
            if (inFrame.hwheel != 0)
                QVERIFY(inFrame.hwheelHiRes != 0);
            add(sums, frame, *length);
        }
        const auto expected = [&](int amount) {
            return static_cast<std::int64_t>(std::trunc(amount * steps * WheelEncoder::hiResUnitsPerPixel));
        };
        QCOMPARE(sums.wheelHiRes, expected(vertical));
        QCOMPARE(sums.hwheelHiRes, -expected(horizontal));
        QCOMPARE(sums.wheel, sums.wheelHiRes / 120);
        QCOMPARE(sums.hwheel, sums.hwheelHiRes / 120);
    }

    // A turn of direction starts a fresh detent: after about 100 units down, three times about 100
    // up make two clicks up; the remainder of the way down does not eat into them.
    void directionChangeStartsAfresh()
    {
        WheelEncoder encoder;
        Sums sums;
        WheelEncoder::Frame frame {};
        const int hundredUnits = 55 * 100 / 120; // pixels that make about 100 units
        for (int sign : { 1, -1, -1, -1 }) {
            const std::size_t length = encoder.encode(ScrollUnit::Pixel, sign * hundredUnits, 0, frame).value();
            add(sums, frame, length);
        }
        QCOMPARE(sums.wheel, -2);
    }

    // Nothing to write for a zero event (a phase boundary), and a value evdev cannot carry is
    // refused rather than cut down.
    void nothingAndTooMuch()
    {
        WheelEncoder encoder;
        WheelEncoder::Frame frame {};
        QCOMPARE(encoder.encode(ScrollUnit::Pixel, 0, 0, frame), std::optional<std::size_t>(0));
        QCOMPARE(encoder.encode(ScrollUnit::Line, 20'000'000, 0, frame), std::nullopt);
        QCOMPARE(encoder.encode(ScrollUnit::Pixel, 0, -2'000'000'000, frame), std::nullopt);
        // The refusal left no trace: the next small step is whole.
        const std::size_t length = encoder.encode(ScrollUnit::Line, 1, 0, frame).value();
        Sums sums;
        add(sums, frame, length);
        QCOMPARE(sums.wheel, 1);
    }
};

QTEST_APPLESS_MAIN(WheelAndDpiTest)
#include "WheelAndDpiTest.moc"
