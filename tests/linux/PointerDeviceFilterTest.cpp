// Which devices Kestrix takes over, decided from their capabilities as the kernel reports them.
// A mistake here either grabs a keyboard (typing through Kestrix) or a touchpad (a dead touchpad).

#include "linux/PointerDeviceFilter.h"

#include <QTest>

#include <libevdev/libevdev.h>

using namespace kestrix;
using Verdict = PointerDeviceFilter::Verdict;

Q_DECLARE_METATYPE(PointerDeviceFilter::Verdict)

class PointerDeviceFilterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void capabilities_data()
    {
        QTest::addColumn<QList<int>>("keys");
        QTest::addColumn<bool>("absolute");
        QTest::addColumn<QByteArray>("phys");
        QTest::addColumn<Verdict>("verdict");

        const QList<int> mouseButtons { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE };
        QTest::newRow("mouse") << mouseButtons << false << QByteArray("usb-0000:00:14.0-1/input0") << Verdict::Pointer;
        QTest::newRow("no right button") << QList<int> { BTN_LEFT } << false << QByteArray() << Verdict::Other;
        QTest::newRow("touchpad") << mouseButtons << true << QByteArray() << Verdict::Other;
        QTest::newRow("keys and motion on one node")
            << (mouseButtons + QList<int> { KEY_A, KEY_Q, KEY_Z }) << false << QByteArray() << Verdict::PointerKeyboard;
        QTest::newRow("media keys on a mouse") << (mouseButtons + QList<int> { KEY_VOLUMEUP, KEY_VOLUMEDOWN }) << false
                                               << QByteArray() << Verdict::Pointer;
        QTest::newRow("our twin") << mouseButtons << false << QByteArray("kestrix-4B657374726978/usb-1/input0")
                                  << Verdict::KestrixTwin;
        QTest::newRow("a twin without a source phys")
            << mouseButtons << false << QByteArray(PointerDeviceFilter::twinPhys(nullptr).c_str())
            << Verdict::KestrixTwin;
    }
    void capabilities()
    {
        QFETCH(QList<int>, keys);
        QFETCH(bool, absolute);
        QFETCH(QByteArray, phys);
        QFETCH(Verdict, verdict);

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
        const Verdict actual = PointerDeviceFilter::classify(device);
        libevdev_free(device);
        QCOMPARE(actual, verdict);
    }
};

QTEST_APPLESS_MAIN(PointerDeviceFilterTest)
#include "PointerDeviceFilterTest.moc"
