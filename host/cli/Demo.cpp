// notectl demo: a short scripted meeting through the plug-in on the in-process conference: a
// captioner types a few lines, two readers follow, a third joins late, and each panel's text is
// printed. Needs no server; it is the README's main job.
#include "Commands.h"
#include "conference/LocalConference.h"
#include "loader/PluginParticipant.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

struct SPerson {
    const char* role;
    std::unique_ptr<CPluginParticipant> participant;
};

std::unique_ptr<CPluginParticipant> JoinMeeting(CNotePlugin& plugin, IMeeting& meeting,
                                                unsigned userId, unsigned userType)
{
    SParticipantSetup setup;
    setup.nUserId = userId;
    setup.notepadType = NOTETAKER_CLOSED_CAPTIONS;
    setup.nUserType = userType;
    auto participant = std::make_unique<CPluginParticipant>(plugin, meeting, setup);
    PumpMainLoop(0.1);
    return participant;
}

void PrintPanel(const SPerson& person)
{
    std::printf("%s:\n", person.role);
    const std::string text = person.participant->PanelText();
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::printf("  | %s\n", text.substr(start, end - start).c_str());
        start = end + 1;
    }
}

}  // namespace

int RunDemo(const std::string& pluginPath)
{
    CNotePlugin plugin;
    std::string error;
    if (!plugin.Load(pluginPath, error)) {
        std::fprintf(stderr, "notectl: cannot load the plug-in: %s\n", error.c_str());
        return 1;
    }
    std::unique_ptr<IMeeting> meeting = NewLocalMeeting(CMeetingOptions());
    std::printf("A closed-captions meeting on the in-process conference, through %s\n\n",
                pluginPath.c_str());

    std::vector<SPerson> people;
    people.push_back({"captioner (user 1)", JoinMeeting(plugin, *meeting, 1, NOTE_USER_WRITER)});
    people.push_back({"reader (user 2)", JoinMeeting(plugin, *meeting, 2, NOTE_USER_READER)});
    people.push_back({"reader (user 3)", JoinMeeting(plugin, *meeting, 3, NOTE_USER_READER)});
    INoteHeadlessPanel* captions = people[0].participant->Panel();
    if (!captions) {
        std::fprintf(stderr, "notectl: the plug-in gave the captioner no panel\n");
        return 1;
    }

    const char* const lines[] = {"Good morning, everybody.", "First item: the budget for 2027.",
                                 "Questions go to the chat, please.", "Thank you, see you next week."};
    int typed = 0;
    for (const char* line : lines) {
        std::printf("captioner types: %s\n", line);
        captions->Type(line);
        captions->PressReturn();
        PumpMainLoop(0.2);
        if (++typed == 2) {
            std::printf("reader (user 4) joins late\n");
            people.push_back({"reader (user 4, late)", JoinMeeting(plugin, *meeting, 4, NOTE_USER_READER)});
        }
    }
    const std::string expected = people[0].participant->PanelText();
    PumpMainLoopUntil([&] {
        for (const SPerson& person : people)
            if (person.participant->PanelText() != expected) return false;
        return true;
    }, 5);

    std::printf("\nWhat each panel shows:\n");
    int behind = 0;
    for (const SPerson& person : people) {
        PrintPanel(person);
        behind += person.participant->PanelText() != expected;
    }
    if (behind) {
        std::printf("\n%d panel(s) differ from the captioner's.\n", behind);
        return 1;
    }
    std::printf("\nEvery panel shows the captioner's %zu characters.\n", expected.size());
    return 0;
}
