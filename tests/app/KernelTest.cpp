// Against a real kernel with udev (run inside the test VM, as root): the helper that pkexec runs
// installs Kestrix's udev rule and applies it at once, what the rule opens up, and that the real
// program, ended by SIGTERM, gives the mouse back.

#include "RunningKestrix.h"
#include "linux/PointerDeviceFilter.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <libudev.h>
#include <linux/input.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

enum class Kind { Mouse, KeyboardAndMouse, LettersAndMouse, Touchpad, Keyboard };

// A uinput device made for the test; destroyed with the object.
class TestDevice
{
public:
    TestDevice(const char *name, Kind kind)
    {
        libevdev *dev = libevdev_new();
        libevdev_set_name(dev, name);
        libevdev_set_id_bustype(dev, BUS_USB);
        libevdev_set_id_vendor(dev, 0x1234);
        libevdev_set_id_product(dev, 0x5678);
        const bool pointer = kind == Kind::Mouse || kind == Kind::KeyboardAndMouse || kind == Kind::LettersAndMouse;
        if (pointer) {
            for (const int code : { REL_X, REL_Y, REL_WHEEL })
                libevdev_enable_event_code(dev, EV_REL, unsigned(code), nullptr);
            for (const int code : { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE })
                libevdev_enable_event_code(dev, EV_KEY, unsigned(code), nullptr);
        }
        if (kind == Kind::KeyboardAndMouse || kind == Kind::Keyboard) {
            // udev calls a device a keyboard when it has every key from Esc to D.
            for (int code = KEY_ESC; code <= KEY_D; ++code)
                libevdev_enable_event_code(dev, EV_KEY, unsigned(code), nullptr);
        }
        if (kind == Kind::LettersAndMouse) {
            // Every letter but no Esc: udev marks it ID_INPUT_KEY, never ID_INPUT_KEYBOARD.
            for (const int code : { KEY_Q, KEY_W, KEY_E, KEY_R, KEY_T, KEY_Y, KEY_U, KEY_I, KEY_O, KEY_P, KEY_A, KEY_S,
                     KEY_D, KEY_F, KEY_G, KEY_H, KEY_J, KEY_K, KEY_L, KEY_Z, KEY_X, KEY_C, KEY_V, KEY_B, KEY_N, KEY_M })
                libevdev_enable_event_code(dev, EV_KEY, unsigned(code), nullptr);
        }
        if (kind == Kind::Touchpad) {
            const input_absinfo axis {
                .value = 0, .minimum = 0, .maximum = 1000, .fuzz = 0, .flat = 0, .resolution = 10
            };
            libevdev_enable_event_code(dev, EV_ABS, ABS_X, &axis);
            libevdev_enable_event_code(dev, EV_ABS, ABS_Y, &axis);
            for (const int code : { BTN_LEFT, BTN_TOUCH, BTN_TOOL_FINGER })
                libevdev_enable_event_code(dev, EV_KEY, unsigned(code), nullptr);
        }
        libevdev_enable_event_code(dev, EV_SYN, SYN_REPORT, nullptr);
        m_error = libevdev_uinput_create_from_device(dev, LIBEVDEV_UINPUT_OPEN_MANAGED, &m_uinput);
        libevdev_free(dev);
    }
    ~TestDevice()
    {
        if (m_uinput != nullptr)
            libevdev_uinput_destroy(m_uinput);
    }
    TestDevice(const TestDevice &) = delete;
    TestDevice &operator=(const TestDevice &) = delete;

    bool ok() const { return m_error == 0 && node() != nullptr; }
    const char *node() const { return m_uinput != nullptr ? libevdev_uinput_get_devnode(m_uinput) : nullptr; }
    void write(unsigned type, unsigned code, int value) { libevdev_uinput_write_event(m_uinput, type, code, value); }

private:
    libevdev_uinput *m_uinput = nullptr;
    int m_error = 0;
};

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

bool grabbedByAnother(const char *node)
{
    const int fd = ::open(node, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool busy = ::ioctl(fd, EVIOCGRAB, 1) != 0 && errno == EBUSY;
    if (!busy)
        ::ioctl(fd, EVIOCGRAB, 0);
    ::close(fd);
    return busy;
}

// The event node of Kestrix's twin of the device called `name`: same name, marked phys.
QString twinNode(const QByteArray &name)
{
    const QStringList nodes = QDir(u"/dev/input"_s).entryList({ u"event*"_s }, QDir::System);
    for (const QString &entry : nodes) {
        const QByteArray path = ("/dev/input/"_L1 + entry).toUtf8();
        const int fd = ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            continue;
        char deviceName[256] = {};
        char phys[256] = {};
        ::ioctl(fd, EVIOCGNAME(sizeof deviceName - 1), deviceName);
        ::ioctl(fd, EVIOCGPHYS(sizeof phys - 1), phys);
        ::close(fd);
        if (name == deviceName && QByteArray(phys).contains("4B657374726978"))
            return QString::fromUtf8(path);
    }
    return {};
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
        TestDevice mouse("Kestrix Helper Test Mouse", Kind::Mouse);
        QVERIFY(mouse.ok());
        const QString sysname = QFileInfo(QString::fromUtf8(mouse.node())).fileName();
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
    void udevRuleOpensMiceOnly_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<bool>("opened");
        QTest::newRow("mouse") << int(Kind::Mouse) << true;
        QTest::newRow("keyboard and mouse on one node") << int(Kind::KeyboardAndMouse) << false;
        QTest::newRow("every letter but no Esc, and a mouse") << int(Kind::LettersAndMouse) << false;
        QTest::newRow("touchpad") << int(Kind::Touchpad) << false;
        QTest::newRow("keyboard") << int(Kind::Keyboard) << false;
    }

    void udevRuleOpensMiceOnly()
    {
        QFETCH(int, kind);
        QFETCH(bool, opened);
        TestDevice device("Kestrix Rule Test Device", Kind(kind));
        QVERIFY(device.ok());
        const QString sysname = QFileInfo(QString::fromUtf8(device.node())).fileName();
        const UdevView view = udevView("input", sysname);
        QVERIFY(view.initialized);
        QCOMPARE(view.tags.contains(u"uaccess"_s), opened);
        QCOMPARE(view.pointerToKestrix, opened);

        const int fd = ::open(device.node(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        libevdev *kernelView = nullptr;
        QCOMPARE(libevdev_new_from_fd(fd, &kernelView), 0);
        const bool pointer
            = kestrix::PointerDeviceFilter::classify(kernelView) == kestrix::PointerDeviceFilter::Verdict::Pointer;
        libevdev_free(kernelView);
        ::close(fd);
        QCOMPARE(pointer, opened);
    }

    // The real program grabs the mouse; SIGTERM ends it cleanly, with the grab released and the twin
    // destroyed.
    void sigtermReleasesEveryGrab()
    {
        const QByteArray name = "Kestrix Shutdown Test Mouse";
        TestDevice mouse(name.constData(), Kind::Mouse);
        QVERIFY(mouse.ok());
        QVERIFY(udevView("input", QFileInfo(QString::fromUtf8(mouse.node())).fileName()).initialized);

        QTemporaryDir config;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, config.path());
        kestrix::test::RunningKestrix running(environment);
        QVERIFY(running.process.waitForStarted());
        QTRY_VERIFY2_WITH_TIMEOUT(running.output.contains("[Kestrix] 준비 완료"), running.output.constData(), 60000);
        QTRY_VERIFY_WITH_TIMEOUT(grabbedByAnother(mouse.node()), 20000);

        QString twin;
        QTRY_VERIFY_WITH_TIMEOUT(!(twin = twinNode(name)).isEmpty(), 20000);
        const int twinFd = ::open(twin.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(twinFd >= 0);
        libevdev *twinState = nullptr;
        QCOMPARE(libevdev_new_from_fd(twinFd, &twinState), 0);
        std::unique_ptr<libevdev, decltype(&libevdev_free)> twinGuard(twinState, libevdev_free);
        const auto drain = [twinState] {
            input_event event {};
            int status = 0;
            do {
                status = libevdev_next_event(twinState, LIBEVDEV_READ_FLAG_NORMAL, &event);
                while (status == LIBEVDEV_READ_STATUS_SYNC)
                    status = libevdev_next_event(twinState, LIBEVDEV_READ_FLAG_SYNC, &event);
            } while (status == LIBEVDEV_READ_STATUS_SUCCESS);
            return status;
        };

        // The left button goes through Kestrix to the twin and stays held there.
        mouse.write(EV_KEY, BTN_LEFT, 1);
        mouse.write(EV_SYN, SYN_REPORT, 0);
        QTRY_VERIFY_WITH_TIMEOUT((drain(), libevdev_get_event_value(twinState, EV_KEY, BTN_LEFT) == 1), 10000);

        // A reader of the source, which sees nothing while Kestrix holds the grab.
        const int sourceFd = ::open(mouse.node(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(sourceFd >= 0);
        input_event event {};
        QCOMPARE(::read(sourceFd, &event, sizeof event), ssize_t(-1));

        running.signal(SIGTERM);
        kestrix::test::expectCleanExit(running);
        QVERIFY2(running.output.contains("[Kestrix] 마우스 입력 해제됨"), running.output.constData());

        // The mouse is everyone's again: not grabbed, and its events reach other readers. The twin is
        // gone. (Kestrix releases what the twin held before destroying it, but evdev drops a removed
        // device's unread events, so a reader cannot see that release; consumers release a removed
        // device's buttons themselves.)
        QVERIFY(!grabbedByAnother(mouse.node()));
        mouse.write(EV_KEY, BTN_LEFT, 0);
        mouse.write(EV_SYN, SYN_REPORT, 0);
        bool sawRelease = false;
        const auto readSource = [&] {
            while (::read(sourceFd, &event, sizeof event) == ssize_t(sizeof event))
                sawRelease = sawRelease || (event.type == EV_KEY && event.code == BTN_LEFT && event.value == 0);
            return sawRelease;
        };
        QTRY_VERIFY_WITH_TIMEOUT(readSource(), 5000);
        QCOMPARE(drain(), -ENODEV);
        QVERIFY(twinNode(name).isEmpty());
        ::close(sourceFd);
        ::close(twinFd);
    }
};

QTEST_GUILESS_MAIN(KernelTest)
#include "KernelTest.moc"
