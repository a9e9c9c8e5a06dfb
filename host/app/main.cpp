// notehost: the desktop host in which people hold meetings through the note plug-in. Each
// window is one participant with the plug-in's panel in it; "notehost --demo" opens a
// closed-captions meeting with a captioner and two readers at once.
#include "app/NoteHostApp.h"
#include "app/ParticipantWindow.h"
#include "loader/NotePlugin.h"
#include "tessarinnote/notehostui.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QMessageBox>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// Takes "--plugin PATH" (or "--plugin=PATH") out of the arguments before Qt sees them: Qt
// would read it as its own option for loading Qt plug-ins.
std::string TakePluginOption(int& argc, char** argv)
{
    std::string path;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--plugin" && i + 1 < argc)
            path = argv[++i];
        else if (arg.rfind("--plugin=", 0) == 0)
            path = arg.substr(9);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    argv[argc] = nullptr;
    return path;
}

}  // namespace

int main(int argc, char** argv)
{
    // The plug-in's timer and the in-process conference post to GLib's default context: Qt
    // must run its loop on GLib, as it does on Linux unless told otherwise.
    qunsetenv("QT_NO_GLIB");
    const std::string pluginOption = TakePluginOption(argc, argv);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("notehost"));
    QApplication::setApplicationDisplayName(QStringLiteral("notehost"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Meetings with shared notes and live captions."));
    parser.addHelpOption();
    const QCommandLineOption demo(QStringLiteral("demo"),
                                  QStringLiteral("Open a captioner's and two readers' windows on one in-process meeting."));
    // Taken out before Qt saw it; listed for --help.
    const QCommandLineOption plugin(QStringLiteral("plugin"),
                                    QStringLiteral("The plug-in file (default: $NOTE_PLUGIN, else the one built here)."),
                                    QStringLiteral("PATH"));
    const QCommandLineOption trace(QStringLiteral("trace"), QStringLiteral("Show the plug-in's trace lines."));
    parser.addOptions({demo, plugin, trace});
    parser.process(app);

    std::string pluginPath = CNotePlugin::BuiltPath();
    if (const char* fromEnvironment = std::getenv("NOTE_PLUGIN")) pluginPath = fromEnvironment;
    if (!pluginOption.empty()) pluginPath = pluginOption;
    if (!parser.isSet(trace)) NoteHostUI_SetTraceOff();

    CNotePlugin notePlugin;
    std::string error;
    if (!notePlugin.Load(pluginPath, error)) {
        std::fprintf(stderr, "notehost: cannot load the plug-in: %s\n", error.c_str());
        QMessageBox::critical(nullptr, QStringLiteral("notehost"),
                              QStringLiteral("Cannot load the plug-in: %1").arg(QString::fromStdString(error)));
        return 1;
    }

    int status = 0;
    {
        CNoteHostApp host(notePlugin);
        if (parser.isSet(demo)) {
            QString reason;
            if (host.OpenDemo(reason).size() != 3) {
                std::fprintf(stderr, "notehost: cannot open the demo: %s\n", reason.toLocal8Bit().constData());
                return 1;
            }
        } else if (!host.AskAndOpen()) {
            return 0;
        }
        status = QApplication::exec();
    }
    return status;
}
