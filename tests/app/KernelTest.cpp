// Against a real kernel with udev (run inside the test VM, as root): the helper that pkexec runs
// installs Kestrix's udev rule and applies it at once, what the rule opens up, and that the real
// program, ended by SIGTERM, gives the mouse back.

#include "../linux/VirtualMouse.h"
#include "RunningKestrix.h"
#include "core/TestSupport.h"
#include "linux/PointerDeviceFilter.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

// The devices the udev rule must tell apart, besides a plain mouse.
// udev calls a device a keyboard when it has every key from Esc to D.
void keyboard(libevdev *device)
{
    for (int code = KEY_ESC; code <= KEY_D; ++code)
        libevdev_enable_event_code(device, EV_KEY, unsigned(code), nullptr);
}

void keyboardAndMouse(libevdev *device)
{
    describeMouse(device);
    keyboard(device);
}

void lettersAndMouse(libevdev *device)
{
    describeMouse(device);
    // Every letter but no Esc: udev marks it ID_INPUT_KEY, never ID_INPUT_KEYBOARD.
    for (const int code : { KEY_Q, KEY_W, KEY_E, KEY_R, KEY_T, KEY_Y, KEY_U, KEY_I, KEY_O, KEY_P, KEY_A, KEY_S, KEY_D,
             KEY_F, KEY_G, KEY_H, KEY_J, KEY_K, KEY_L, KEY_Z, KEY_X, KEY_C, KEY_V, KEY_B, KEY_N, KEY_M })
        libevdev_enable_event_code(device, EV_KEY, unsigned(code), nullptr);
}

void touchpad(libevdev *device)
{
    const input_absinfo axis { .value = 0, .minimum = 0, .maximum = 1000, .fuzz = 0, .flat = 0, .resolution = 10 };
    libevdev_enable_event_code(device, EV_ABS, ABS_X, &axis);
    libevdev_enable_event_code(device, EV_ABS, ABS_Y, &axis);
    for (const int code : { BTN_LEFT, BTN_TOUCH, BTN_TOOL_FINGER })
        libevdev_enable_event_code(device, EV_KEY, unsigned(code), nullptr);
}

using Describe = void (*)(libevdev *);

// udev's view of a device once it has handled every pending event: the device's own, and the
// removal of an earlier device that had the same event node number, whose database entry would
// otherwise read as the new device's for a moment.
struct UdevView
{
    bool initialized = false;
    QStringList tags;
    bool pointerToKestrix = false; // what Kestrix's device filter makes of udev's description
};

UdevView udevView(const char *subsystem, const QString &sysname)
{
    QProcess::execute(u"udevadm"_s, { u"settle"_s, u"--timeout=60"_s });
    UdevView view;
    udev *context = udev_new();
    udev_device *device = udev_device_new_from_subsystem_sysname(context, subsystem, sysname.toUtf8().constData());
    if (device != nullptr) {
        view.initialized = udev_device_get_is_initialized(device) > 0;
        view.pointerToKestrix
            = kestrix::PointerDeviceFilter::classify(device) == kestrix::PointerDeviceFilter::Verdict::Pointer;
        udev_list_entry *entry = nullptr;
        udev_list_entry_foreach(entry, udev_device_get_tags_list_entry(device)) view.tags
            += QString::fromUtf8(udev_list_entry_get_name(entry));
        udev_device_unref(device);
    }
    udev_unref(context);
    return view;
}

} // namespace

class KernelTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (::access("/dev/uinput", W_OK) != 0)
            QSKIP("needs a writable /dev/uinput: run inside the test VM (tests/linux/vm/vmrun)");
    }

    // What the permission prompt runs, minus pkexec: a mouse that was there before gets access
    // without a new login, and so does /dev/uinput. The VM's /etc is the host's, read-only: the
    // two folders the helper writes to are fresh ones here.
    void helperInstallsTheRuleAndAppliesItAtOnce()
    {
        VirtualMouse mouse("Kestrix Helper Test Mouse");
        QVERIFY(mouse.isValid());
        const QString sysname = QFileInfo(mouse.node()).fileName();
        const UdevView before = udevView("input", sysname);
        QVERIFY(before.initialized);
        QVERIFY(!before.tags.contains(u"uaccess"_s));

        for (const QString &folder : { u"/etc/udev/rules.d"_s, u"/etc/modules-load.d"_s })
            QCOMPARE(QProcess::execute(u"mount"_s, { u"-t"_s, u"tmpfs"_s, u"tmpfs"_s, folder }), 0);
        const QString helper = QStringLiteral(KESTRIX_RULE_HELPER);
        QVERIFY(QProcess::execute(helper, { u"--rule=/tmp/other.rules"_s }) != 0); // no arguments, ever
        QVERIFY(!QFile::exists(u"/etc/udev/rules.d/70-kestrix.rules"_s));

        QCOMPARE(QProcess::execute(helper, {}), 0);
        QVERIFY(QFile::exists(u"/etc/udev/rules.d/70-kestrix.rules"_s));
        QCOMPARE(QFile(u"/etc/modules-load.d/kestrix.conf"_s).size() > 0, true);
        QVERIFY(udevView("input", sysname).tags.contains(u"uaccess"_s));
        QVERIFY(udevView("misc", u"uinput"_s).tags.contains(u"uaccess"_s));
    }

    // Mice only: never a node that also types, never a touchpad, never a keyboard. Kestrix's device
    // filter takes the same nodes, from udev's description and from the kernel's alike: a node the
    // rule left closed would keep Kestrix waiting for access.
    void udevRuleOpensMiceOnly()
    {
        const std::pair<const char *, Describe> rows[]
            = { { "mouse", describeMouse }, { "keyboard and mouse on one node", keyboardAndMouse },
                  { "every letter but no Esc, and a mouse", lettersAndMouse }, { "touchpad", touchpad },
                  { "keyboard", keyboard } };
        for (const auto &[name, describe] : rows) {
            const Row row { QString::fromUtf8(name) };
            const bool opened = describe == &describeMouse;
            VirtualMouse device("Kestrix Rule Test Device", describe);
            QVERIFY(device.isValid());
            const QString sysname = QFileInfo(device.node()).fileName();
            const UdevView view = udevView("input", sysname);
            QVERIFY(view.initialized);
            QCOMPARE(view.tags.contains(u"uaccess"_s), opened);
            QCOMPARE(view.pointerToKestrix, opened);

            const int fd = ::open(device.node().toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
            libevdev *kernelView = nullptr;
            QCOMPARE(libevdev_new_from_fd(fd, &kernelView), 0);
            const bool pointer
                = kestrix::PointerDeviceFilter::classify(kernelView) == kestrix::PointerDeviceFilter::Verdict::Pointer;
            libevdev_free(kernelView);
            ::close(fd);
            QCOMPARE(pointer, opened);
        }
    }

    // The real program grabs the mouse; SIGTERM ends it cleanly, with the grab released and the twin
    // destroyed.
    void sigtermReleasesEveryGrab()
    {
        VirtualMouse mouse("Kestrix Shutdown Test Mouse");
        QVERIFY(mouse.isValid());
        QVERIFY(udevView("input", QFileInfo(mouse.node()).fileName()).initialized);

        QTemporaryDir config;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, config.path());
        environment.insert(u"KESTRIX_DEBUG"_s, u"1"_s); // it names the twin it makes
        RunningKestrix running(environment);
        QVERIFY(running.process.waitForStarted());
        QTRY_VERIFY2_WITH_TIMEOUT(running.output.contains("[Kestrix] 준비 완료"), running.output.constData(), 60000);
        QTRY_VERIFY_WITH_TIMEOUT(isGrabbedByOther(mouse.node()), 20000);
        // The grab comes first and the line naming the twin after it, from another thread: on a busy
        // machine the line can arrive well after the grab is seen.
        const QRegularExpression tookOver(u"Took over "_s + mouse.node() + u" .* twin (/dev/input/event\\d+)"_s);
        QString twinPath;
        QTRY_VERIFY2_WITH_TIMEOUT(!(twinPath = tookOver.match(QString::fromUtf8(running.output)).captured(1)).isEmpty(),
            running.output.constData(), 20000);
        EventLog twin(twinPath);
        QVERIFY(twin.isOpen());

        // The left button goes through Kestrix to the twin and stays held there; a reader of the
        // source sees nothing while Kestrix holds the grab.
        mouse.press(BTN_LEFT);
        QTRY_VERIFY_WITH_TIMEOUT(twin.heldButtons() == std::vector<int> { BTN_LEFT }, 10000);
        EventLog source(mouse.node());
        QVERIFY(source.isOpen() && source.pump().frames.empty());

        running.signal(SIGTERM);
        expectCleanExit(running);
        QVERIFY2(running.output.contains("[Kestrix] 마우스 입력 해제됨"), running.output.constData());

        // The mouse is everyone's again: not grabbed, and its events reach other readers. The twin is
        // gone. (Kestrix releases what the twin held before destroying it, but evdev drops a removed
        // device's unread events, so a reader cannot see that release; consumers release a removed
        // device's buttons themselves.)
        QVERIFY(!isGrabbedByOther(mouse.node()));
        mouse.release(BTN_LEFT);
        QTRY_COMPARE_WITH_TIMEOUT(source.pump().framesWith(EV_KEY, BTN_LEFT), 1, 5000);
        QVERIFY(twin.pump().isGone());
    }
};

QTEST_GUILESS_MAIN(KernelTest)
#include "KernelTest.moc"
