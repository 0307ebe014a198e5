// What `cmake --install` puts on the machine (into a throw-away DESTDIR): every file where a desktop
// looks for it, and the installed paths that the files name agreeing with each other.

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

} // namespace

class InstallTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_destdir;
    QString m_root; // DESTDIR plus the configured prefix

    QString installed(const QString &path) const { return m_root + u'/' + path; }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_destdir.isValid());
        QProcess install;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"DESTDIR"_s, m_destdir.path());
        install.setProcessEnvironment(environment);
        install.setProcessChannelMode(QProcess::MergedChannels);
        install.start(QStringLiteral(KESTRIX_CMAKE), { u"--install"_s, QStringLiteral(KESTRIX_BUILD_DIR) });
        QVERIFY(install.waitForFinished(120000));
        QVERIFY2(install.exitCode() == 0, install.readAll().constData());
        m_root = m_destdir.path() + QStringLiteral(KESTRIX_INSTALL_PREFIX);
    }

    void filesAreWhereTheDesktopLooks_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("executable");
        QTest::newRow("program") << u"bin/kestrix"_s << true;
        QTest::newRow("launcher") << u"share/applications/com.orvane.kestrix.desktop"_s << false;
        QTest::newRow("icon") << u"share/icons/hicolor/scalable/apps/com.orvane.kestrix.svg"_s << false;
        QTest::newRow("symbolic icon") << u"share/icons/hicolor/scalable/apps/com.orvane.kestrix-symbolic.svg"_s
                                       << false;
        QTest::newRow("udev rule") << u"share/kestrix/70-kestrix.rules"_s << false;
        QTest::newRow("uinput module") << u"share/kestrix/kestrix-uinput.conf"_s << false;
        QTest::newRow("rule helper") << u"libexec/kestrix/kestrix-install-udev-rule"_s << true;
        QTest::newRow("polkit action") << u"share/polkit-1/actions/com.orvane.kestrix.policy"_s << false;
    }

    void filesAreWhereTheDesktopLooks()
    {
        QFETCH(QString, path);
        QFETCH(bool, executable);
        const QFileInfo file(installed(path));
        QVERIFY2(file.isFile(), qPrintable(file.filePath()));
        QCOMPARE(file.isExecutable(), executable);
    }

    // The polkit action names the helper where it is installed, and the helper names the rule where
    // it is installed: a prefix change that reaches one and not the other fails here.
    void installedPathsAgree()
    {
        const QString prefix = QStringLiteral(KESTRIX_INSTALL_PREFIX);
        QXmlStreamReader policy(readAll(installed(u"share/polkit-1/actions/com.orvane.kestrix.policy"_s)));
        QString execPath;
        while (!policy.atEnd()) {
            policy.readNext();
            if (policy.isStartElement() && policy.name() == "annotate"_L1
                && policy.attributes().value("key"_L1) == "org.freedesktop.policykit.exec.path"_L1)
                execPath = policy.readElementText();
        }
        QVERIFY2(!policy.hasError(), qPrintable(policy.errorString()));
        QCOMPARE(execPath, prefix + "/libexec/kestrix/kestrix-install-udev-rule"_L1);

        const QByteArray helper = readAll(installed(u"libexec/kestrix/kestrix-install-udev-rule"_s));
        QVERIFY(helper.contains("rule_source='" + prefix.toUtf8() + "/share/kestrix/70-kestrix.rules'"));
        QVERIFY(helper.contains("modules_source='" + prefix.toUtf8() + "/share/kestrix/kestrix-uinput.conf'"));
        QVERIFY(!helper.contains('@'));

        QProcess syntax;
        syntax.start(u"sh"_s, { u"-n"_s, installed(u"libexec/kestrix/kestrix-install-udev-rule"_s) });
        QVERIFY(syntax.waitForFinished());
        QCOMPARE(syntax.exitCode(), 0);
    }

    // The uaccess tag works only in a rules file that sorts after 60-input-id.rules (which marks
    // mice) and before 73-seat-late.rules (which turns the tag into access).
    void udevRuleSortsBetweenInputIdAndSeatLate()
    {
        const QString name = u"70-kestrix.rules"_s;
        QVERIFY(QFile::exists(installed(u"share/kestrix/"_s + name)));
        QVERIFY(u"60-input-id.rules"_s < name && name < u"73-seat-late.rules"_s);
        QVERIFY(readAll(installed(u"libexec/kestrix/kestrix-install-udev-rule"_s))
                    .contains("/etc/udev/rules.d/" + name.toUtf8()));
    }

    void launcherIsAValidDesktopEntry()
    {
        const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
        if (validator.isEmpty())
            QSKIP("desktop-file-validate is not installed (desktop-file-utils; scripts/deps test)");
        QProcess validate;
        validate.setProcessChannelMode(QProcess::MergedChannels);
        validate.start(validator, { installed(u"share/applications/com.orvane.kestrix.desktop"_s) });
        QVERIFY(validate.waitForFinished());
        QVERIFY2(validate.exitCode() == 0, validate.readAll().constData());
        QCOMPARE(validate.readAll(), QByteArray());
    }

    // The Debian package holds the same files at the same prefix, depends on what the permission
    // prompt needs besides the libraries, and takes back the helper's files on removal.
    void debianPackage()
    {
        for (const char *tool : { "dpkg-deb", "dpkg-shlibdeps", "file" }) {
            if (QStandardPaths::findExecutable(QString::fromUtf8(tool)).isEmpty())
                QSKIP("the .deb needs dpkg-dev and file (scripts/deps)");
        }
        QTemporaryDir output;
        QProcess cpack;
        cpack.setProcessChannelMode(QProcess::MergedChannels);
        cpack.start(QStringLiteral(KESTRIX_CPACK),
            { u"-G"_s, u"DEB"_s, u"-B"_s, output.path(), u"--config"_s,
                QStringLiteral(KESTRIX_BUILD_DIR) + "/CPackConfig.cmake"_L1 });
        QVERIFY(cpack.waitForFinished(300000));
        QVERIFY2(cpack.exitCode() == 0, cpack.readAll().constData());
        const QStringList packages = QDir(output.path()).entryList({ u"kestrix_*.deb"_s });
        QCOMPARE(packages.size(), 1);
        const QString package = output.path() + u'/' + packages.first();

        const auto dpkgDeb = [&package](const QStringList &arguments) {
            QProcess process;
            process.start(u"dpkg-deb"_s, arguments + QStringList { package });
            process.waitForFinished();
            return process.readAllStandardOutput();
        };
        const QByteArray fields = dpkgDeb({ u"--field"_s });
        QVERIFY(fields.contains("Package: kestrix\n"));
        QVERIFY(fields.contains("Version: 1.0.1\n"));
        for (const char *dependency : { "pkexec", "udev", "libqt6widgets6", "libevdev2", "libudev1" })
            QVERIFY2(fields.contains(dependency), dependency);
        QVERIFY(dpkgDeb({ u"--info"_s }).contains(" postrm "));
        const QByteArray contents = dpkgDeb({ u"--contents"_s });
        const QByteArray prefix = "." + QByteArray(KESTRIX_INSTALL_PREFIX);
        for (const QByteArray &path : { prefix + "/bin/kestrix", prefix + "/libexec/kestrix/kestrix-install-udev-rule",
                 prefix + "/share/polkit-1/actions/com.orvane.kestrix.policy",
                 prefix + "/share/applications/com.orvane.kestrix.desktop" })
            QVERIFY2(contents.contains(path + '\n'), path.constData());
    }
};

QTEST_GUILESS_MAIN(InstallTest)
#include "InstallTest.moc"
