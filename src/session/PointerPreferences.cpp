#include "session/PointerPreferences.h"

#include "core/Log.h"
#include "session/SwayIpc.h"
#include "session/XcbSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <gio/gio.h>
#include <xcb/xinput.h>

#include <functional>
#include <optional>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

bool kconfigTrue(QByteArrayView value)
{
    const QByteArray lowered = value.trimmed().toByteArray().toLower();
    return lowered == "true" || lowered == "on" || lowered == "yes" || lowered == "1";
}

} // namespace

// ---- GNOME ---------------------------------------------------------------------------------------

// GSettings through GIO. Change notifications arrive on the GLib main context, which Qt's event loop
// runs on the GUI thread (Qt's GLib event dispatcher, the default on Linux).
class PointerPreferences::GSettingsSource
{
public:
    static constexpr const char *SchemaId = "org.gnome.desktop.peripherals.mouse";

    // Null when the schema (or one of its two keys) is not installed: g_settings_new() on a missing
    // schema aborts the process, so it is looked up first.
    static std::unique_ptr<GSettingsSource> open(std::function<void()> onChange)
    {
        GSettingsSchemaSource *schemas = g_settings_schema_source_get_default();
        if (!schemas)
            return nullptr;
        GSettingsSchema *schema = g_settings_schema_source_lookup(schemas, SchemaId, TRUE);
        if (!schema)
            return nullptr;
        const bool complete = g_settings_schema_has_key(schema, "left-handed") != 0
            && g_settings_schema_has_key(schema, "natural-scroll") != 0;
        std::unique_ptr<GSettingsSource> source;
        if (complete)
            source.reset(new GSettingsSource(g_settings_new_full(schema, nullptr, nullptr), std::move(onChange)));
        g_settings_schema_unref(schema);
        return source;
    }

    ~GSettingsSource()
    {
        g_signal_handler_disconnect(m_settings, m_handler);
        g_object_unref(m_settings);
    }

    Values read() const
    {
        return { g_settings_get_boolean(m_settings, "left-handed") != FALSE,
            g_settings_get_boolean(m_settings, "natural-scroll") != FALSE, u"GSettings"_s };
    }

private:
    GSettingsSource(GSettings *settings, std::function<void()> onChange)
        : m_settings(settings)
        , m_onChange(std::move(onChange))
    {
        m_handler = g_signal_connect_data(m_settings, "changed", reinterpret_cast<GCallback>(&GSettingsSource::changed),
            this, nullptr, GConnectFlags(0));
        // GSettings reports changes only of keys read at least once since the handler was connected.
        read();
    }

    static void changed(GSettings *, const char *, gpointer self)
    {
        static_cast<GSettingsSource *>(self)->m_onChange();
    }

    GSettings *m_settings;
    std::function<void()> m_onChange;
    gulong m_handler = 0;
};

// ---- KDE Plasma ----------------------------------------------------------------------------------

// kcminputrc, watched. KConfig saves by writing a new file and renaming it over the old one, which
// ends a file watch, so the folder is watched as well and the file watch renewed on every change.
class PointerPreferences::KdeSource
{
public:
    KdeSource(QObject *context, std::function<void()> onChange)
        : m_path(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/kcminputrc"_s)
    {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        m_watcher.addPath(QFileInfo(m_path).absolutePath());
        watchFile();
        const auto reload = [this, onChange = std::move(onChange)] {
            watchFile();
            onChange();
        };
        QObject::connect(&m_watcher, &QFileSystemWatcher::fileChanged, context, reload);
        QObject::connect(&m_watcher, &QFileSystemWatcher::directoryChanged, context, reload);
    }

    Values read() const
    {
        QFile file(m_path);
        if (!file.open(QIODevice::ReadOnly))
            return { false, false, u"kcminputrc"_s };
        return fromKcmInput(file.read(qint64(1024) * 1024));
    }

private:
    void watchFile()
    {
        if (QFileInfo::exists(m_path) && !m_watcher.files().contains(m_path))
            m_watcher.addPath(m_path);
    }

    QString m_path;
    QFileSystemWatcher m_watcher;
};

PointerPreferences::Values PointerPreferences::fromKcmInput(QByteArrayView text)
{
    std::optional<bool> deviceLeft, deviceNatural, mouseLeft, mouseNatural, legacyLeft, legacyNatural;
    QList<QByteArray> group;
    for (QByteArrayView line : QByteArray(text.toByteArray()).split('\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (line.startsWith('[')) {
            // "[Libinput][1133][49291][Logitech G502]": one name per bracket pair.
            group.clear();
            for (QByteArrayView rest = line; rest.startsWith('[');) {
                const qsizetype close = rest.indexOf(']');
                if (close < 0)
                    break;
                group.append(rest.sliced(1, close - 1).toByteArray());
                rest = rest.sliced(close + 1);
            }
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (equals < 0)
            continue;
        QByteArrayView key = line.first(equals).trimmed();
        if (const qsizetype bracket = key.indexOf('['); bracket >= 0)
            key = key.first(bracket); // "Key[$e]" and localised variants
        const QByteArrayView value = line.sliced(equals + 1);

        if (group.size() == 4 && group.front() == "Libinput") {
            if (group.back().toLower().contains("touchpad"))
                continue;
            // Any mouse switched wins: the setting is per device and the user switched one.
            if (key == "LeftHanded")
                deviceLeft = deviceLeft.value_or(false) || kconfigTrue(value);
            else if (key == "NaturalScroll")
                deviceNatural = deviceNatural.value_or(false) || kconfigTrue(value);
        } else if (group.size() == 1 && group.front() == "Mouse") {
            if (key == "XLbInptLeftHanded")
                mouseLeft = kconfigTrue(value);
            else if (key == "XLbInptNaturalScroll")
                mouseNatural = kconfigTrue(value);
            else if (key == "MouseButtonMapping")
                legacyLeft = value.trimmed() == "LeftHanded";
            else if (key == "ReverseScrollPolarity")
                legacyNatural = kconfigTrue(value);
        }
    }
    return { deviceLeft.value_or(mouseLeft.value_or(legacyLeft.value_or(false))),
        deviceNatural.value_or(mouseNatural.value_or(legacyNatural.value_or(false))), u"kcminputrc"_s };
}

// ---- sway ----------------------------------------------------------------------------------------

class PointerPreferences::SwaySource
{
public:
    static std::unique_ptr<SwaySource> open(
        const QString &socketPath, QObject *context, std::function<void(const Values &)> onValues)
    {
        std::unique_ptr<SwaySource> source(new SwaySource(std::move(onValues)));
        if (!source->m_ipc.connectTo(socketPath))
            return nullptr;
        QObject::connect(&source->m_ipc, &SwayIpc::event, context, [raw = source.get()](quint32 type) {
            if (type == SwayIpc::InputEvent)
                raw->query();
        });
        source->m_ipc.subscribe({ u"input"_s });
        source->query();
        return source;
    }

private:
    explicit SwaySource(std::function<void(const Values &)> onValues)
        : m_onValues(std::move(onValues))
    { }

    void query()
    {
        m_ipc.send(SwayIpc::GetInputs, {}, [this](const QJsonDocument &reply) {
            if (reply.isArray())
                m_onValues(fromSwayInputs(reply));
        });
    }

    std::function<void(const Values &)> m_onValues;
    SwayIpc m_ipc;
};

PointerPreferences::Values PointerPreferences::fromSwayInputs(const QJsonDocument &inputs)
{
    Values values { false, false, u"sway"_s };
    // sway lists touchpads with the type "touchpad"; their natural scrolling is not the mouse's.
    for (const QJsonValue input : inputs.array()) {
        const QJsonObject device = input.toObject();
        if (device.value("type"_L1).toString() != "pointer"_L1)
            continue;
        const QJsonObject libinput = device.value("libinput"_L1).toObject();
        values.leftHanded = values.leftHanded || libinput.value("left_handed"_L1).toString() == "enabled"_L1;
        values.naturalScroll = values.naturalScroll || libinput.value("natural_scroll"_L1).toString() == "enabled"_L1;
    }
    return values;
}

// ---- X11 -----------------------------------------------------------------------------------------

// The server's pointer button map (xmodmap's "pointer = 3 2 1"), and, where the libinput driver
// runs, its per-device Left Handed and Natural Scrolling properties, which desktops set instead.
// Either one swaps; both together cancel out, as they do in the server. Followed through
// MappingNotify and XInput2 property and hierarchy events.
class PointerPreferences::X11Source
{
public:
    static std::unique_ptr<X11Source> open(const QByteArray &display, QObject *context, std::function<void()> onChange)
    {
        int screenNumber = 0;
        xcb::Connection connection = xcb::connect(display.constData(), &screenNumber);
        if (!connection)
            return nullptr;
        xcb_screen_t *screen = xcb::screenOf(connection.get(), screenNumber);
        if (!screen)
            return nullptr;
        std::unique_ptr<X11Source> source(
            new X11Source(std::move(connection), screen->root, context, std::move(onChange)));
        return source;
    }

    Values read() const
    {
        xcb_connection_t *c = m_connection.get();
        bool swapped13 = false, swapped45 = false;
        if (xcb::Reply<xcb_get_pointer_mapping_reply_t> map {
                xcb_get_pointer_mapping_reply(c, xcb_get_pointer_mapping(c), nullptr) }) {
            const uint8_t *buttons = xcb_get_pointer_mapping_map(map.get());
            const int count = xcb_get_pointer_mapping_map_length(map.get());
            swapped13 = count >= 3 && buttons[0] == 3 && buttons[2] == 1;
            swapped45 = count >= 5 && buttons[3] == 5 && buttons[4] == 4;
        }
        bool libinputLeft = false, libinputNatural = false;
        if (m_xinput)
            readLibinput(libinputLeft, libinputNatural);
        drain();
        return { swapped13 != libinputLeft, swapped45 != libinputNatural, u"X11"_s };
    }

private:
    X11Source(xcb::Connection connection, xcb_window_t root, QObject *context, std::function<void()> onChange)
        : m_connection(std::move(connection))
        , m_onChange(std::move(onChange))
        , m_notifier(xcb_get_file_descriptor(m_connection.get()), QSocketNotifier::Read)
    {
        xcb_connection_t *c = m_connection.get();
        const xcb_query_extension_reply_t *extension = xcb_get_extension_data(c, &xcb_input_id);
        if (extension && extension->present != 0) {
            xcb::Reply<xcb_input_xi_query_version_reply_t> version { xcb_input_xi_query_version_reply(
                c, xcb_input_xi_query_version(c, 2, 2), nullptr) };
            m_xinput = version && (version->major_version > 2 || (version->major_version == 2));
        }
        if (m_xinput) {
            m_xinputOpcode = extension->major_opcode;
            m_leftHandedAtom = xcb::atom(c, "libinput Left Handed Enabled", true);
            m_naturalAtom = xcb::atom(c, "libinput Natural Scrolling Enabled", true);
            m_tappingAtom = xcb::atom(c, "libinput Tapping Enabled", true);
            struct
            {
                xcb_input_event_mask_t head;
                uint32_t bits;
            } mask { { XCB_INPUT_DEVICE_ALL, 1 },
                XCB_INPUT_XI_EVENT_MASK_HIERARCHY | XCB_INPUT_XI_EVENT_MASK_PROPERTY };
            xcb_input_xi_select_events(c, root, 1, &mask.head);
            xcb_flush(c);
        }
        QObject::connect(&m_notifier, &QSocketNotifier::activated, context, [this] {
            if (drain())
                m_onChange();
        });
    }

    void readLibinput(bool &left, bool &natural) const
    {
        xcb_connection_t *c = m_connection.get();
        if (m_leftHandedAtom == XCB_ATOM_NONE && m_naturalAtom == XCB_ATOM_NONE)
            return;
        xcb::Reply<xcb_input_xi_query_device_reply_t> devices { xcb_input_xi_query_device_reply(
            c, xcb_input_xi_query_device(c, XCB_INPUT_DEVICE_ALL), nullptr) };
        if (!devices)
            return;
        for (auto it = xcb_input_xi_query_device_infos_iterator(devices.get()); it.rem > 0;
             xcb_input_xi_device_info_next(&it)) {
            const xcb_input_xi_device_info_t *info = it.data;
            const QByteArrayView name(xcb_input_xi_device_info_name(info), xcb_input_xi_device_info_name_length(info));
            if (info->type != XCB_INPUT_DEVICE_TYPE_SLAVE_POINTER || info->enabled == 0 || name.contains("XTEST"))
                continue;
            if (property(info->deviceid, m_tappingAtom))
                continue; // a touchpad
            left = left || property(info->deviceid, m_leftHandedAtom).value_or(false);
            natural = natural || property(info->deviceid, m_naturalAtom).value_or(false);
        }
    }

    // An 8-bit Boolean device property; nothing when the device does not have it.
    std::optional<bool> property(xcb_input_device_id_t device, xcb_atom_t atom) const
    {
        if (atom == XCB_ATOM_NONE)
            return std::nullopt;
        xcb_connection_t *c = m_connection.get();
        xcb::Reply<xcb_input_xi_get_property_reply_t> reply { xcb_input_xi_get_property_reply(
            c, xcb_input_xi_get_property(c, device, 0, atom, XCB_ATOM_ANY, 0, 1), nullptr) };
        if (!reply || reply->num_items == 0 || reply->format != 8)
            return std::nullopt;
        return *static_cast<const uint8_t *>(xcb_input_xi_get_property_items(reply.get())) != 0;
    }

    // Takes every event libxcb has, read from the socket or queued while a reply was awaited; true
    // when one of them may change the values.
    bool drain() const
    {
        bool relevant = false;
        while (xcb::Reply<xcb_generic_event_t> event { xcb_poll_for_event(m_connection.get()) }) {
            const uint8_t type = event->response_type & 0x7f;
            if (type == XCB_MAPPING_NOTIFY) {
                relevant = relevant
                    || reinterpret_cast<xcb_mapping_notify_event_t *>(event.get())->request == XCB_MAPPING_POINTER;
            } else if (type == XCB_GE_GENERIC) {
                relevant
                    = relevant || reinterpret_cast<xcb_ge_generic_event_t *>(event.get())->extension == m_xinputOpcode;
            }
        }
        return relevant;
    }

    xcb::Connection m_connection;
    std::function<void()> m_onChange;
    QSocketNotifier m_notifier;
    bool m_xinput = false;
    uint8_t m_xinputOpcode = 0;
    xcb_atom_t m_leftHandedAtom = XCB_ATOM_NONE;
    xcb_atom_t m_naturalAtom = XCB_ATOM_NONE;
    xcb_atom_t m_tappingAtom = XCB_ATOM_NONE;
};

// ---- the chooser ---------------------------------------------------------------------------------

PointerPreferences::PointerPreferences(QObject *parent)
    : PointerPreferences(Session::fromEnvironment(), parent)
{ }

PointerPreferences::PointerPreferences(const Session &session, QObject *parent)
    : QObject(parent)
{
    switch (session.desktop) {
    case Session::Desktop::Sway:
        if (!session.swaySocket.isEmpty()) {
            m_sway = SwaySource::open(session.swaySocket, this, [this](const Values &values) { publish(values); });
            if (m_sway) {
                // The first reply comes back later; until then the neutral values, named after sway.
                m_values.source = u"sway"_s;
                return;
            }
        }
        break;
    case Session::Desktop::Gnome:
        m_gsettings = GSettingsSource::open([this] { publish(m_gsettings->read()); });
        if (m_gsettings) {
            publish(m_gsettings->read());
            return;
        }
        break;
    case Session::Desktop::Kde:
        m_kde = std::make_unique<KdeSource>(this, [this] { publish(m_kde->read()); });
        publish(m_kde->read());
        return;
    case Session::Desktop::Other:
        break;
    }
    if (!session.x11Display.isEmpty()) {
        m_x11 = X11Source::open(session.x11Display, this, [this] { publish(m_x11->read()); });
        if (m_x11) {
            publish(m_x11->read());
            return;
        }
    }
    publish({ false, false, u"none"_s });
}

PointerPreferences::~PointerPreferences() = default;

void PointerPreferences::publish(Values values)
{
    if (m_logged && values == m_values)
        return;
    const bool differs = values != m_values;
    m_values = std::move(values);
    m_logged = true;
    if (m_values.source == "none"_L1) {
        Log::write("[Kestrix] No desktop pointer settings could be read: right-handed, natural scrolling off");
    } else {
        Log::write(u"[Kestrix] Pointer settings from %1: %2, natural scrolling %3"_s
                       .arg(m_values.source, m_values.leftHanded ? u"left-handed"_s : u"right-handed"_s,
                           m_values.naturalScroll ? u"on"_s : u"off"_s)
                       .toStdString());
    }
    if (differs)
        Q_EMIT changed();
}

} // namespace kestrix
