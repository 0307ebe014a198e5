// Tells Kestrix which window is active, so that it leaves the apps the user chose alone.
// Kestrix writes its own bus name in place of the marker before it hands this script to KWin.
const kestrixService = "@SERVICE@";

function report(window) {
    callDBus(kestrixService, "/com/orvane/kestrix/ActiveWindow", "com.orvane.kestrix.ActiveWindow",
        "setActiveWindow",
        window ? String(window.resourceClass) : "",
        window ? String(window.resourceName) : "");
}

// Plasma 6 names windows "window"; Plasma 5 named them "client".
if (workspace.windowActivated) {
    workspace.windowActivated.connect(report);
    report(workspace.activeWindow);
} else {
    workspace.clientActivated.connect(report);
    report(workspace.activeClient);
}
