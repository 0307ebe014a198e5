// Kestrix's window for GNOME 43 and 44: answers on the session bus, from inside the shell, with the
// class and instance of the window that has the focus, and announces each change.
'use strict';

const { Gio, GLib } = imports.gi;

const InterfaceXml = `
<node>
  <interface name="com.orvane.Kestrix.FocusedWindow">
    <method name="GetFocused">
      <arg type="s" direction="out" name="wmClass"/>
      <arg type="s" direction="out" name="wmClassInstance"/>
    </method>
    <signal name="FocusedChanged">
      <arg type="s" name="wmClass"/>
      <arg type="s" name="wmClassInstance"/>
    </signal>
  </interface>
</node>`;

class FocusedWindow {
    enable() {
        this._object = Gio.DBusExportedObject.wrapJSObject(InterfaceXml, this);
        this._object.export(Gio.DBus.session, '/com/orvane/Kestrix/FocusedWindow');
        this._handler = global.display.connect('notify::focus-window', () => {
            this._object.emit_signal('FocusedChanged', new GLib.Variant('(ss)', this.GetFocused()));
        });
    }

    disable() {
        global.display.disconnect(this._handler);
        this._object.unexport();
        this._object = null;
    }

    // Wayland windows carry their app id as the class and no instance.
    GetFocused() {
        const window = global.display.focus_window;
        return [window?.get_wm_class() ?? '', window?.get_wm_class_instance() ?? ''];
    }
}

function init() {
    return new FocusedWindow();
}
