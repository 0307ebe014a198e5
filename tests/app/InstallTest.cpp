// What installing puts on the machine, through the Debian package (CPack runs the same install rules
// as `cmake --install`, into its own staging folder): every file where a desktop looks for it, the
// installed paths that the files name agreeing with each other, no path into the build folder in
// the program, and Debian's own checker (lintian) finding nothing a maintainer would fix.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Runs a program to its end; its standard output, or the reason it failed.
QByteArray run(const QString &program, const QStringList &arguments, bool *ok)
{
    QProcess process;
    process.start(program, arguments);
    *ok = process.waitForFinished(300000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return *ok ? process.readAllStandardOutput() : process.readAllStandardError() + process.errorString().toUtf8();
}

} // namespace

class InstallTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_package;
    QString m_prefix = QStringLiteral(KESTRIX_INSTALL_PREFIX);

    QString installed(const QString &path) const { return m_work.path() + "/root"_L1 + m_prefix + u'/' + path; }

private Q_SLOTS:
    void initTestCase()
    {
        for (const char *tool : { "dpkg-deb", "dpkg-shlibdeps", "file" }) {
            if (QStandardPaths::findExecutable(QString::fromUtf8(tool)).isEmpty())
                QSKIP("the Debian package needs dpkg-dev and file (scripts/deps)");
        }
        bool ok = false;
        const QByteArray cpack = run(QStringLiteral(KESTRIX_CPACK),
            { u"-G"_s, u"DEB"_s, u"-B"_s, m_work.path(), u"--config"_s,
                QStringLiteral(KESTRIX_BUILD_DIR) + "/CPackConfig.cmake"_L1 },
            &ok);
        QVERIFY2(ok, cpack.constData());
        const QStringList packages = QDir(m_work.path()).entryList({ u"kestrix_*.deb"_s });
        QCOMPARE(packages.size(), 1);
        m_package = m_work.path() + u'/' + packages.first();
        const QByteArray extract = run(u"dpkg-deb"_s, { u"-x"_s, m_package, m_work.path() + "/root"_L1 }, &ok);
        QVERIFY2(ok, extract.constData());
    }

    void packageControl()
    {
        bool ok = false;
        const QByteArray fields = run(u"dpkg-deb"_s, { u"--field"_s, m_package }, &ok);
        QVERIFY(fields.contains("Package: kestrix\n") && fields.contains("Version: 1.0.1\n"));
        // The permission prompt's tools besides the libraries dpkg-shlibdeps found.
        for (const char *dependency : { "pkexec", "udev", "libqt6widgets6", "libevdev2", "libudev1" })
            QVERIFY2(fields.contains(dependency), dependency);
        QVERIFY(run(u"dpkg-deb"_s, { u"--info"_s, m_package }, &ok).contains(" postrm "));
    }

    // The launcher, a valid desktop entry, among them.
    void filesAreWhereTheDesktopLooks()
    {
        const QStringList executables { u"bin/kestrix"_s, u"libexec/kestrix/kestrix-install-udev-rule"_s };
        const QStringList files { u"share/applications/com.orvane.kestrix.desktop"_s,
            u"share/icons/hicolor/scalable/apps/com.orvane.kestrix.svg"_s,
            u"share/icons/hicolor/scalable/apps/com.orvane.kestrix-symbolic.svg"_s, u"share/kestrix/70-kestrix.rules"_s,
            u"share/kestrix/kestrix-uinput.conf"_s, u"share/polkit-1/actions/com.orvane.kestrix.policy"_s,
            u"share/man/man1/kestrix.1.gz"_s, u"share/doc/kestrix/copyright"_s, u"share/doc/kestrix/changelog.gz"_s };
        for (const QString &path : executables + files) {
            const QFileInfo file(installed(path));
            QVERIFY2(file.isFile(), qPrintable(path));
            QVERIFY2(file.isExecutable() == executables.contains(path), qPrintable(path));
        }
        const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
        if (validator.isEmpty())
            QSKIP("desktop-file-validate is not installed (desktop-file-utils; scripts/deps test)");
        bool ok = false;
        const QByteArray complaints = run(validator, { installed(files.first()) }, &ok);
        QVERIFY2(ok && complaints.isEmpty(), complaints.constData());
    }

    // The polkit action names the helper where it is installed, and the helper names the rule where
    // it is installed: a prefix change that reaches one and not the other fails here.
    void installedPathsAgree()
    {
        QXmlStreamReader policy(readAll(installed(u"share/polkit-1/actions/com.orvane.kestrix.policy"_s)));
        QString execPath;
        while (!policy.atEnd()) {
            policy.readNext();
            if (policy.isStartElement() && policy.name() == "annotate"_L1
                && policy.attributes().value("key"_L1) == "org.freedesktop.policykit.exec.path"_L1)
                execPath = policy.readElementText();
        }
        QVERIFY2(!policy.hasError(), qPrintable(policy.errorString()));
        QCOMPARE(execPath, m_prefix + "/libexec/kestrix/kestrix-install-udev-rule"_L1);

        const QString helperPath = installed(u"libexec/kestrix/kestrix-install-udev-rule"_s);
        const QByteArray helper = readAll(helperPath);
        QVERIFY(helper.contains("rule_source='" + m_prefix.toUtf8() + "/share/kestrix/70-kestrix.rules'"));
        QVERIFY(helper.contains("modules_source='" + m_prefix.toUtf8() + "/share/kestrix/kestrix-uinput.conf'"));
        bool ok = false;
        QVERIFY2((run(u"sh"_s, { u"-n"_s, helperPath }, &ok), ok), "the helper is not valid sh");

        // The uaccess tag works only in a rules file that sorts after 60-input-id.rules (which marks
        // mice) and before 73-seat-late.rules (which turns the tag into access).
        QVERIFY(helper.contains("rule_target=/etc/udev/rules.d/70-kestrix.rules\n"));
    }

    // pkexec must never be pointed at the build folder, which its user can write. A sanitizer build
    // keeps the names of its source files for its reports; nothing else may name the folder.
    void programNamesNoBuildFolderPath()
    {
        const QByteArray program = readAll(installed(u"bin/kestrix"_s));
        QVERIFY(!program.isEmpty());
        // Qt's u""_s literals are UTF-16; the compiler's own file names are UTF-8.
        const QString buildDir = QStringLiteral(KESTRIX_BUILD_DIR "/");
        const QByteArray utf16(reinterpret_cast<const char *>(buildDir.utf16()), buildDir.size() * 2);
        QVERIFY2(!program.contains(utf16), "a Qt string names the build folder");
        for (qsizetype at = program.indexOf(buildDir.toUtf8()); at >= 0;
             at = program.indexOf(buildDir.toUtf8(), at + 1)) {
            const QByteArray text = program.mid(at, program.indexOf('\0', at) - at);
            QVERIFY2(KESTRIX_SANITIZED && (text.endsWith(".cpp") || text.endsWith(".h")), text.constData());
        }
    }

    void lintianFindsNothingToFix()
    {
        const QString lintian = QStandardPaths::findExecutable(u"lintian"_s);
        if (lintian.isEmpty())
            QSKIP("lintian is not installed (scripts/deps test installs it): the package was not checked");
        QProcess process;
        // Lintian judges a package for /usr; a build for another prefix is packed for /usr once more.
        QString package = m_package;
        if (m_prefix != "/usr"_L1) {
            const QString folder = m_work.path() + "/usr-package"_L1;
            bool ok = false;
            const QByteArray cpack = run(QStringLiteral(KESTRIX_CPACK),
                { u"-G"_s, u"DEB"_s, u"-B"_s, folder, u"-D"_s, u"CPACK_PACKAGING_INSTALL_PREFIX=/usr"_s, u"--config"_s,
                    QStringLiteral(KESTRIX_BUILD_DIR) + "/CPackConfig.cmake"_L1 },
                &ok);
            QVERIFY2(ok, cpack.constData());
            package = folder + u'/' + QDir(folder).entryList({ u"kestrix_*.deb"_s }).value(0);
        }
        process.start(lintian, { u"--fail-on"_s, u"error,warning"_s, package });
        QVERIFY(process.waitForFinished(300000));
        const QByteArray report = process.readAllStandardOutput() + process.readAllStandardError();
        QVERIFY2(process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0, report.constData());
    }
};

QTEST_GUILESS_MAIN(InstallTest)
#include "InstallTest.moc"
