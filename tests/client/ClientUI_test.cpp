// The client's side of the panel: notepad and user types, the controls SetCtrl derives, the
// panel's queries, and the tick's scroll countdown, Publish button and file-save tracking.
#include "ClientHarness.h"
#include "ClientTraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using Calls = std::vector<std::string>;

long Count(const Calls& calls, const std::string& call) { return std::count(calls.begin(), calls.end(), call); }

TEST(ClientUI, SwitchingTheNotepadTypeSetsTheLimitAndTheBufferAndResetsTheDocument)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    const struct { NOTETAKERTYPE type; unsigned maxLen, bufSize;
    } steps[] = {{NOTETAKER_CLOSED_CAPTIONS, 409600, 2457601}, {NOTETAKER_CLOSED_CAPTIONS, 409600, 2457601},
                 {NOTETAKER_SINGLE, 81920, 491521}, {NOTETAKER_ALL_PARTICIPANTS, 81920, 491521}};
    NOTETAKERTYPE previous = NOTETAKER_SINGLE;
    for (const auto& step : steps) {
        SCOPED_TRACE(step.type);
        const bool same = step.type == previous;
        ViewOf(client).SetText("old text");
        client.m_strSaveFileName = client.m_strLastFileSaveContent = client.m_strOldMsg = "old text";
        client.m_bModifiedSinceFileSave = client.m_bHasContent = 1;
        client.m_bNoFileSaveYet = 0;
        client.m_SaveInfo.m_vecChangeInfoPdu.resize(2);
        CClientTraceCapture trace;
        EXPECT_EQ(client.SetNotepadType(step.type), 0);
        // The same type again changes nothing.
        EXPECT_EQ(trace.PanelMessages().empty(), same);
        if (!same) { EXPECT_EQ(trace.PanelMessages().front(), NOTEUI_ABORT_SAVE_DIALOG); }
        EXPECT_EQ(client.m_nMaxTextLen, step.maxLen);
        EXPECT_EQ(client.m_nTextBufSize, step.bufSize);
        EXPECT_EQ(client.m_pTextBuf[client.m_nTextBufSize - 1], 0);
        EXPECT_EQ(PanelOf(client).TextView().maxLen(), int(step.maxLen));
        EXPECT_EQ(PanelOf(client).notePadType(), int(step.type));
        const std::string kept = same ? "old text" : "";  // all of it, or none
        EXPECT_EQ(ViewOf(client).Text() + "|" + client.m_strSaveFileName + "|" + client.m_strLastFileSaveContent + "|" +
                      client.m_strOldMsg,
                  kept + "|" + kept + "|" + kept + "|" + kept);
        EXPECT_EQ(client.m_bModifiedSinceFileSave + client.m_bNoFileSaveYet * 10 + int(client.m_bHasContent) * 100,
                  same ? 101 : 10);
        EXPECT_EQ(client.m_SaveInfo.m_vecChangeInfoPdu.size(), same ? 2u : 0u);
        previous = step.type;
    }
}

TEST(ClientUI, EachNotepadAndRoleGetsItsControlsInOrder)
{
    const std::vector<int> controls = {NOTEUI_ENABLE_PUBLISH, NOTEUI_SHOW_PUBLISH, NOTEUI_SET_READ_ONLY};
    const struct { NOTETAKERTYPE type; unsigned user; const char* text; std::vector<int> order;  // 2007 to 2009 as sent
        bool readOnly, publishVisible, publishEnabled, clearsLastSave; } rows[] = {
        {NOTETAKER_ALL_PARTICIPANTS, 1, "x", {2008, 2009}, false, false, false, false},
        {NOTETAKER_SINGLE, 1, "x", {2009, 2008, 2007}, false, true, true, false},
        {NOTETAKER_SINGLE, 1, "", {2009, 2008, 2007}, false, true, false, true},
        {NOTETAKER_SINGLE, 0, "", {2009, 2008}, true, false, false, false},
        {NOTETAKER_CLOSED_CAPTIONS, 1, "x", {2008, 2009, 2007}, false, true, true, false},
        {NOTETAKER_CLOSED_CAPTIONS, 1, "", {2008, 2009, 2007}, false, true, false, false},
        {NOTETAKER_CLOSED_CAPTIONS, 0, "x", {2009, 2008}, true, false, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.type) + "/" + std::to_string(row.user) + "/" + row.text);
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, row.type, row.user);
        CHeadlessTextView& view = ViewOf(client);
        const bool hasText = *row.text != 0, writerRow = row.order.size() == 3;
        view.SetText(row.text);
        view.SetReadOnly(!row.readOnly);  // every state starts wrong, so each must be set
        view.SetPublishVisible(!row.publishVisible);
        view.SetPublishEnabled(!row.publishEnabled);
        view.SetSaveEnabled(!hasText);
        client.m_strLastFileSaveContent = "saved";
        Calls& calls = harness.SinkOf(client).m_vecCalls;
        calls.clear();
        CClientTraceCapture trace;
        client.SetCtrl();
        EXPECT_EQ(trace.PanelMessages(controls), row.order);
        EXPECT_EQ(trace.PanelMessages({NOTEUI_ENABLE_SAVE, 2007, 2008, 2009}).back(), NOTEUI_ENABLE_SAVE);
        EXPECT_EQ(view.IsReadOnly(), row.readOnly);
        EXPECT_EQ(view.IsPublishVisible(), row.publishVisible);
        if (writerRow) { EXPECT_EQ(view.IsPublishEnabled(), row.publishEnabled); }
        EXPECT_EQ(view.IsSaveEnabled(), hasText);
        EXPECT_EQ(client.m_strLastFileSaveContent, row.clearsLastSave ? "" : "saved");
        const std::string saveEnabled = hasText ? "SaveEnabled 1" : "SaveEnabled 0";
        EXPECT_EQ(Count(calls, saveEnabled), writerRow ? 2 : 1);
        EXPECT_EQ(calls.back(), saveEnabled);
    }
}

TEST(ClientUI, AWriterBecomingReaderLosesTheUnsentEditsAReaderBecomingWriterMayPublish)
{
    const struct { NOTETAKERTYPE type; const char *agreed, *panelAfter;  // the shared text, CR LF
        unsigned needAutoSave; } cases[] = {{NOTETAKER_SINGLE, "agreed\r\ntext", "agreed\ntext", 0},
                 {NOTETAKER_SINGLE, "", "", 1},
                 {NOTETAKER_CLOSED_CAPTIONS, "said", "said", 0},
                 {NOTETAKER_ALL_PARTICIPANTS, "agreed", "agreed draft", 0}};  // private notes stay
    for (const auto& c : cases) {
        SCOPED_TRACE(c.agreed);
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, c.type, NOTE_USER_WRITER);
        client.m_strOldMsg = c.agreed;
        harness.Type(client, "agreed draft");
        client.m_bNeedAutoSave = 0;
        EXPECT_EQ(client.SetUserType(NOTE_USER_READER), 0);
        EXPECT_EQ(ViewOf(client).Text(), c.panelAfter);
        EXPECT_EQ(client.m_bNeedAutoSave, c.needAutoSave);
        EXPECT_EQ(PanelOf(client).getUserType(), 0);
        EXPECT_EQ(ViewOf(client).IsReadOnly(), c.type != NOTETAKER_ALL_PARTICIPANTS);
    }
    for (const char* text : {"", "received"}) {
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_READER);
        ViewOf(client).SetText(text);
        client.m_bHasContent = 1;
        client.SetUserType(NOTE_USER_WRITER);
        EXPECT_EQ(client.m_bHasContent, *text ? 1u : 0u) << text;  // an empty note has no content
        EXPECT_EQ(PanelOf(client).getUserType(), 1);
        EXPECT_TRUE(ViewOf(client).IsPublishVisible() && !ViewOf(client).IsReadOnly());
    }
}

// The panel's query and the tick agree on the writer's Publish button.
TEST(ClientUI, QueriesAndTheTickAnswerWhetherTheWriterCanPublish)
{
    // canPublish 7: not answered, and no 2007 from the tick.
    const struct { NOTETAKERTYPE type; unsigned user; const char* text; unsigned hasContent; int canPublish;
    } cases[] = {{NOTETAKER_SINGLE, 1, "x", 0, 1},           {NOTETAKER_SINGLE, 1, "", 1, 1},
                 {NOTETAKER_SINGLE, 1, "", 0, 0},            {NOTETAKER_CLOSED_CAPTIONS, 1, "x", 0, 1},
                 {NOTETAKER_SINGLE, 0, "x", 1, 7},           {NOTETAKER_ALL_PARTICIPANTS, 1, "x", 1, 7}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.type) + "/" + std::to_string(c.user) + "/" + c.text);
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, c.type, c.user);
        harness.Type(client, c.text);
        client.m_bHasContent = c.hasContent;
        unsigned char out = 7;
        EXPECT_EQ(client.HandleUIMessage(NOTEUI_QUERY_CAN_PUBLISH, nullptr, &out), 0);
        EXPECT_EQ(out, c.canPublish);
        EXPECT_EQ(client.HandleUIMessage(NOTEUI_QUERY_CAN_PUBLISH, nullptr, nullptr), 0);
        CClientTraceCapture trace;
        client.OnTick();
        EXPECT_EQ(trace.PanelMessages({NOTEUI_ENABLE_PUBLISH}).size(), c.canPublish == 7 ? 0u : 1u);
        if (c.canPublish != 7) { EXPECT_EQ(ViewOf(client).IsPublishEnabled(), c.canPublish == 1); }
    }
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    for (bool needSave : {true, false}) {
        client.SetFileNeedSave(needSave);
        unsigned char out = 7;
        client.HandleUIMessage(NOTEUI_QUERY_NEED_SAVE, nullptr, &out);
        EXPECT_EQ(out, needSave ? 1 : 0);
    }
}

TEST(ClientUI, NeedSaveFollowsTheTextUntilTheFirstSaveThenADifferenceSticks)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    Calls& calls = harness.SinkOf(client).m_vecCalls;
    client.m_bNeedAutoSave = 0;
    const struct { const char* typed; bool save;  // saved after the tick
        int needSave; const char* told;
    } steps[] = {{"abc", false, 1, "SaveEnabled 1"}, {"", false, 0, "SaveEnabled 0"}, {"saved", true, 0, nullptr},
                 {"saved and more", false, 1, nullptr}, {"saved", false, 1, nullptr},
                 {"", false, 1, "SaveEnabled 1"}};  // an emptied note that was saved before is still worth saving
    for (const auto& s : steps) {
        harness.Type(client, s.typed);
        calls.clear();
        client.OnTick();
        if (s.save) {
            client.SetLastFileSaveContent();
            client.SetFileNeedSave(false);
        }
        EXPECT_EQ(client.GetFileSaveState(), s.needSave) << s.typed;
        if (s.told) { EXPECT_EQ(Count(calls, s.told), 1) << s.typed; }
    }
    EXPECT_EQ(client.m_bNeedAutoSave, 1u);
    calls.clear();
    client.OnTick();  // nothing changed, nothing told
    EXPECT_TRUE(calls.empty());
}

}  // namespace
