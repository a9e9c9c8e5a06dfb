// A reader's Qt panel receiving one caption line while it already shows 400 KB of captions: the
// time from the line's delivery (the captioner has pressed Return and the conference has posted
// the item) to the line being in the reader's text widget, beside one setPlainText of the same
// 400 KB text into a text widget of the same size, measured in the same run. Counters:
//   line_ms       median delivery-to-widget time of one line
//   setText_ms    median time of one setPlainText of the whole text
//   ratio         line_ms / setText_ms. Goal: <= 0.25, and line_ms under one 60 Hz frame.
// The plug-in is loaded with dlopen; the meeting is in-process; widgets on the offscreen
// platform unless QT_QPA_PLATFORM says otherwise.
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"
#include "tessarinnote/notehostui.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPlainTextEdit>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kCaptionChars = 400 * 1000;
constexpr int kLineChars = 80;

QApplication& App()
{
    static int argc = 1;
    static char name[] = "bench_qtpanel";
    static char* argv[] = {name, nullptr};
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    static QApplication* app = new QApplication(argc, argv);
    return *app;
}

double Median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

void BM_ReaderPanelReceivesOneLine(benchmark::State& state)
{
    App();
    NoteHostUI_SetTraceCallback([](void*, const char*, const char*) {}, nullptr);
    CNotePlugin plugin;
    std::string error;
    if (!plugin.Load(CNotePlugin::BuiltPath(), error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    std::unique_ptr<IMeeting> meeting = NewLocalMeeting(CMeetingOptions());
    SParticipantSetup captionerSetup;
    captionerSetup.nUserId = 1;
    captionerSetup.notepadType = NOTETAKER_CLOSED_CAPTIONS;
    captionerSetup.nUserType = NOTE_USER_WRITER;
    CPluginParticipant captioner(plugin, *meeting, captionerSetup);

    QWidget window;
    window.resize(640, 480);
    window.show();
    SParticipantSetup readerSetup = captionerSetup;
    readerSetup.nUserId = 2;
    readerSetup.nUserType = NOTE_USER_READER;
    readerSetup.pParentView = &window;
    CPluginParticipant reader(plugin, *meeting, readerSetup);
    PumpMainLoop(0.2);
    auto* text = window.findChild<QPlainTextEdit*>("NoteTextView");
    if (!text || !captioner.Panel()) {
        state.SkipWithError("no panel");
        return;
    }

    // 400 KB of captions, committed at once.
    std::string captions;
    for (int line = 0; static_cast<int>(captions.size()) < kCaptionChars; ++line) {
        std::string one = "caption line " + std::to_string(line) + " ";
        one.resize(kLineChars - 1, 'x');
        captions += one + "\n";
    }
    captions.resize(kCaptionChars - 1);
    captioner.Panel()->Type(captions.c_str());
    captioner.Panel()->PressReturn();
    if (!PumpMainLoopUntil([&] { return text->document()->characterCount() > kCaptionChars; }, 30)) {
        state.SkipWithError("the captions never reached the reader");
        return;
    }
    PumpMainLoop(0.4);

    std::vector<double> lines;
    int n = 0;
    for (auto _ : state) {
        const int blocks = text->blockCount();
        captioner.Panel()->Type(("one more line " + std::to_string(n++)).c_str());
        captioner.Panel()->PressReturn();  // the item is delivered from here on
        const auto start = std::chrono::steady_clock::now();
        while (text->blockCount() == blocks) QCoreApplication::processEvents(QEventLoop::AllEvents);
        const auto end = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        lines.push_back(seconds * 1e3);
        PumpMainLoop(0.01);
    }

    // The reference: the whole text set at once into a widget of the same size.
    const QString whole = text->toPlainText();
    std::vector<double> sets;
    for (int round = 0; round < 5; ++round) {
        QWidget other;
        other.resize(640, 480);
        auto* edit = new QPlainTextEdit(&other);
        edit->resize(640, 447);
        other.show();
        QCoreApplication::processEvents();
        QElapsedTimer timer;
        timer.start();
        edit->setPlainText(whole);
        QCoreApplication::processEvents();  // the visible part laid out and painted
        sets.push_back(static_cast<double>(timer.nsecsElapsed()) * 1e-6);
    }
    const double line = Median(lines);
    const double set = Median(sets);
    state.counters["line_ms"] = line;
    state.counters["setText_ms"] = set;
    state.counters["ratio"] = set > 0 ? line / set : 0;
}
BENCHMARK(BM_ReaderPanelReceivesOneLine)->UseManualTime()->Iterations(100)->Unit(benchmark::kMillisecond);

}  // namespace
