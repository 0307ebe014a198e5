// A plain Wayland window whose app id is the only argument; it stays open until it is killed. The
// session tests use it as the real client of a real compositor.

#include <QGuiApplication>
#include <QRasterWindow>

int main(int argc, char **argv)
{
    QGuiApplication application(argc, argv);
    if (argc != 2)
        return 2;
    QGuiApplication::setDesktopFileName(QString::fromLocal8Bit(argv[1]));
    QRasterWindow window;
    window.resize(200, 150);
    window.show();
    return application.exec();
}
