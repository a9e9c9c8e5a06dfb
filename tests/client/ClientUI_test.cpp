// The client's side of the panel: notepad and user types, the controls SetCtrl derives, the
// panel's messages to the client, and the tick's scroll countdown and file-save tracking.
#include "ClientHarness.h"
#include "ClientTraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

long Count(const std::vector<std::string>& calls, const std::string& call)
{
    return std::count(calls.begin(), calls.end(), call);
}

// --- the notepad type

TEST(ClientNotepadType, SwitchingSetsTheLimitTheBufferAndResetsTheDocument)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    struct {
        NOTETAKERTYPE type;
        unsigned maxLen;
        unsigned bufSize;
    } const steps[] = {
        {NOTETAKER_CLOSED_CAPTIONS, 409600, 2457601},
        {NOTETAKER_SINGLE, 81920, 491521},
        {NOTETAKER_CLOSED_CAPTIONS, 409600, 2457601},
        {NOTETAKER_ALL_PARTICIPANTS, 81920, 491521},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.type);
        ViewOf(client).SetText("old text");
        client.m_strSaveFileName = "/tmp/old.txt";
        client.m_strLastFileSaveContent = "old text";
        client.m_bModifiedSinceFileSave = 1;
        client.m_bNoFileSaveYet = 0;
        client.m_bHasContent = 1;
        client.m_strOldMsg = "old text";
        client.m_strPublishMsg = "old text";
        client.m_SaveInfo.m_vecChangeInfoPdu.resize(2);
        CClientTraceCapture trace;

        EXPECT_EQ(0, client.SetNotepadType(step.type));

        ASSERT_FALSE(trace.PanelMessages().empty());
        EXPECT_EQ(NOTEUI_ABORT_SAVE_DIALOG, trace.PanelMessages().front());
        EXPECT_EQ(step.maxLen, client.m_nMaxTextLen);
        EXPECT_EQ(step.bufSize, client.m_nTextBufSize);
        ASSERT_NE(nullptr, client.m_pTextBuf);
        EXPECT_EQ(0, client.m_pTextBuf[client.m_nTextBufSize - 1]);
        EXPECT_EQ(static_cast<int>(step.maxLen), PanelOf(client).TextView().maxLen());
        EXPECT_EQ(static_cast<int>(step.type), PanelOf(client).notePadType());
        EXPECT_EQ("", ViewOf(client).Text());
        EXPECT_EQ("", client.m_strSaveFileName);
        EXPECT_EQ("", client.m_strLastFileSaveContent);
        EXPECT_EQ("", client.m_strOldMsg);
        EXPECT_EQ("", client.m_strPublishMsg);
        EXPECT_EQ(0, client.m_bModifiedSinceFileSave);
        EXPECT_EQ(1, client.m_bNoFileSaveYet);
        EXPECT_EQ(0u, client.m_bHasContent);
        EXPECT_TRUE(client.m_SaveInfo.m_vecChangeInfoPdu.empty());
    }
}

TEST(ClientNotepadType, TheSameTypeAgainChangesNothing)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_CLOSED_CAPTIONS, NOTE_USER_WRITER);
    ViewOf(client).SetText("captions so far");
    client.m_strSaveFileName = "/tmp/cc.txt";
    const char* buffer = client.m_pTextBuf;
    CClientTraceCapture trace;
    EXPECT_EQ(0, client.SetNotepadType(NOTETAKER_CLOSED_CAPTIONS));
    EXPECT_TRUE(trace.PanelMessages().empty());
    EXPECT_EQ(buffer, client.m_pTextBuf);
    EXPECT_EQ("captions so far", ViewOf(client).Text());
    EXPECT_EQ("/tmp/cc.txt", client.m_strSaveFileName);
}

// --- the controls

TEST(ClientControls, EachNotepadAndRoleGetsItsControlsInOrder)
{
    const std::vector<int> controls = {NOTEUI_ENABLE_PUBLISH, NOTEUI_SHOW_PUBLISH, NOTEUI_SET_READ_ONLY};
    struct {
        NOTETAKERTYPE type;
        unsigned user;
        const char* text;
        std::vector<int> order;  // 2007 to 2009 as sent
        bool readOnly, publishVisible, publishEnabled, clearsLastSave;
    } const rows[] = {
        {NOTETAKER_ALL_PARTICIPANTS, 0, "", {2008, 2009}, false, false, false, false},
        {NOTETAKER_ALL_PARTICIPANTS, 1, "x", {2008, 2009}, false, false, false, false},
        {NOTETAKER_SINGLE, 1, "x", {2009, 2008, 2007}, false, true, true, false},
        {NOTETAKER_SINGLE, 1, "", {2009, 2008, 2007}, false, true, false, true},
        {NOTETAKER_SINGLE, 0, "x", {2009, 2008}, true, false, false, false},
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
        const bool hasText = *row.text != 0;
        const bool writerRow = row.order.size() == 3;
        view.SetText(row.text);
        // Every state starts wrong, so each must be set.
        view.SetReadOnly(!row.readOnly);
        view.SetPublishVisible(!row.publishVisible);
        view.SetPublishEnabled(!row.publishEnabled);
        view.SetSaveEnabled(!hasText);
        client.m_strLastFileSaveContent = "saved";
        std::vector<std::string>& calls = harness.SinkOf(client).m_vecCalls;
        calls.clear();
        CClientTraceCapture trace;

        client.SetCtrl();

        EXPECT_EQ(row.order, trace.PanelMessages(controls));
        EXPECT_EQ(NOTEUI_ENABLE_SAVE, trace.PanelMessages({NOTEUI_ENABLE_SAVE, 2007, 2008, 2009}).back());
        EXPECT_EQ(row.readOnly, view.IsReadOnly());
        EXPECT_EQ(row.publishVisible, view.IsPublishVisible());
        if (writerRow) {
            EXPECT_EQ(row.publishEnabled, view.IsPublishEnabled());
        }
        EXPECT_EQ(hasText, view.IsSaveEnabled());
        EXPECT_EQ(hasText ? 1 : 0, client.GetFileSaveState());
        EXPECT_EQ(row.clearsLastSave ? "" : "saved", client.m_strLastFileSaveContent);
        const std::string saveEnabled = hasText ? "SaveEnabled 1" : "SaveEnabled 0";
        EXPECT_EQ(writerRow ? 2 : 1, Count(calls, saveEnabled));
        ASSERT_FALSE(calls.empty());
        EXPECT_EQ(saveEnabled, calls.back());
        if (!hasText) {
            ASSERT_GE(calls.size(), 2u);
            EXPECT_EQ("NeedSave 0", calls[calls.size() - 2]);
        }
    }
}

TEST(ClientControls, NothingWithoutAHostSink)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    client.m_pHostSink = nullptr;
    ViewOf(client).SetText("text");
    CClientTraceCapture trace;
    client.SetCtrl();
    EXPECT_TRUE(trace.PanelMessages().empty());
}

// --- the user type

TEST(ClientUserType, AWriterBecomingReaderLosesTheUnsentEdits)
{
    struct {
        NOTETAKERTYPE type;
        const char* agreed;  // m_strOldMsg, CR LF
        const char* panelAfter;
        unsigned needAutoSave;
    } const cases[] = {
        {NOTETAKER_SINGLE, "agreed\r\ntext", "agreed\ntext", 0},
        {NOTETAKER_SINGLE, "", "", 1},
        {NOTETAKER_CLOSED_CAPTIONS, "said", "said", 0},
        {NOTETAKER_ALL_PARTICIPANTS, "agreed", "agreed draft", 0},  // private notes stay
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.agreed);
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, c.type, NOTE_USER_WRITER);
        client.m_strOldMsg = c.agreed;
        harness.Type(client, "agreed draft");
        client.m_bNeedAutoSave = 0;
        client.m_strShowMsg = "stale";

        EXPECT_EQ(0, client.SetUserType(NOTE_USER_READER));

        EXPECT_EQ(c.panelAfter, ViewOf(client).Text());
        EXPECT_EQ(c.needAutoSave, client.m_bNeedAutoSave);
        if (c.needAutoSave) {
            EXPECT_EQ("", client.m_strShowMsg);
        }
        EXPECT_EQ(0, PanelOf(client).getUserType());
        EXPECT_EQ(c.type != NOTETAKER_ALL_PARTICIPANTS, ViewOf(client).IsReadOnly());
    }
}

TEST(ClientUserType, AReaderBecomingWriterOfAnEmptyNoteHasNoContent)
{
    for (const char* text : {"", "received"}) {
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_READER);
        ViewOf(client).SetText(text);
        client.m_bHasContent = 1;
        client.SetUserType(NOTE_USER_WRITER);
        EXPECT_EQ(*text ? 1u : 0u, client.m_bHasContent) << text;
        EXPECT_EQ(1, PanelOf(client).getUserType());
        EXPECT_FALSE(ViewOf(client).IsReadOnly());
        EXPECT_TRUE(ViewOf(client).IsPublishVisible());
    }
}

// --- messages from the panel

TEST(ClientUIMessages, QueriesAnswerOnlyWithSomewhereToAnswer)
{
    struct {
        NOTETAKERTYPE type;
        unsigned user;
        const char* text;
        unsigned hasContent;
        int canPublish;  // 7: left alone
    } const cases[] = {
        {NOTETAKER_SINGLE, 1, "x", 0, 1},
        {NOTETAKER_SINGLE, 1, "", 1, 1},
        {NOTETAKER_SINGLE, 1, "", 0, 0},
        {NOTETAKER_CLOSED_CAPTIONS, 1, "x", 0, 1},
        {NOTETAKER_SINGLE, 0, "x", 1, 7},
        {NOTETAKER_ALL_PARTICIPANTS, 1, "x", 1, 7},
    };
    for (const auto& c : cases) {
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, c.type, c.user);
        ViewOf(client).SetText(c.text);
        client.m_bHasContent = c.hasContent;
        unsigned char out = 7;
        EXPECT_EQ(0, client.HandleUIMessage(NOTEUI_QUERY_CAN_PUBLISH, nullptr, &out));
        EXPECT_EQ(c.canPublish, out) << c.type << "/" << c.user << "/" << c.text;
        EXPECT_EQ(0, client.HandleUIMessage(NOTEUI_QUERY_CAN_PUBLISH, nullptr, nullptr));
    }

    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    for (bool needSave : {true, false}) {
        client.SetFileNeedSave(needSave);
        unsigned char out = 7;
        client.HandleUIMessage(NOTEUI_QUERY_NEED_SAVE, nullptr, &out);
        EXPECT_EQ(needSave ? 1 : 0, out);
        EXPECT_EQ(0, client.HandleUIMessage(NOTEUI_QUERY_NEED_SAVE, nullptr, nullptr));
    }
}

// --- the tick

TEST(ClientTick, ScrollCountdownRunsOnTheLoopAndWaitsWhileThePanelIsHidden)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_READER);
    CHeadlessTextView& view = ViewOf(client);
    view.SetText("text");
    client.m_nScrolltoEnd = 5;
    view.SetHidden(true);
    harness.Ticks(8);
    EXPECT_EQ(5, client.m_nScrolltoEnd);

    view.SetHidden(false);
    harness.Ticks(4);
    EXPECT_EQ(1, client.m_nScrolltoEnd);
    EXPECT_EQ(0, view.ScrollCount());
    harness.Ticks(1);
    EXPECT_EQ(1, view.ScrollCount());
    harness.Ticks(3);
    EXPECT_EQ(0, client.m_nScrolltoEnd);
    EXPECT_EQ(1, view.ScrollCount());
}

TEST(ClientTick, NothingChangedNothingSent)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_SINGLE, NOTE_USER_WRITER);
    client.m_bTextChanged = 0;
    harness.SinkOf(client).m_vecCalls.clear();
    CClientTraceCapture trace;
    client.OnTick();
    EXPECT_TRUE(trace.PanelMessages().empty());
    EXPECT_TRUE(harness.SinkOf(client).m_vecCalls.empty());
}

TEST(ClientTick, NeedSaveFollowsTheTextUntilTheFirstSave)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    std::vector<std::string>& calls = harness.SinkOf(client).m_vecCalls;
    client.m_bNeedAutoSave = 0;

    harness.Type(client, "abc");
    calls.clear();
    client.OnTick();
    EXPECT_EQ(0, client.m_bTextChanged);
    EXPECT_EQ(1, client.GetFileSaveState());
    EXPECT_EQ(1, client.m_bModifiedSinceFileSave);
    EXPECT_EQ(1u, client.m_bNeedAutoSave);
    EXPECT_EQ(1, Count(calls, "SaveEnabled 1"));

    harness.Type(client, "");
    calls.clear();
    client.OnTick();
    EXPECT_EQ(0, client.GetFileSaveState());
    EXPECT_EQ(1, Count(calls, "SaveEnabled 0"));
}

TEST(ClientTick, AfterASaveADifferenceSticksUntilTheNextSave)
{
    CClientHarness harness;
    CNoteClient& client = harness.Join(1, NOTETAKER_ALL_PARTICIPANTS, NOTE_USER_WRITER);
    struct {
        const char* typed;
        int needSave;
    } const steps[] = {
        {"saved", 0},           // the saved text itself
        {"saved and more", 1},  // a difference is seen
        {"saved", 1},           // back to the saved text: still to save
    };
    harness.Type(client, "saved");
    client.OnTick();
    client.SetLastFileSaveContent();
    client.SetFileNeedSave(false);
    for (const auto& step : steps) {
        harness.Type(client, step.typed);
        client.OnTick();
        EXPECT_EQ(step.needSave, client.GetFileSaveState()) << step.typed;
    }
    // An emptied note that was saved before is still worth saving.
    harness.SinkOf(client).m_vecCalls.clear();
    harness.Type(client, "");
    client.OnTick();
    EXPECT_EQ(1, Count(harness.SinkOf(client).m_vecCalls, "SaveEnabled 1"));
}

TEST(ClientTick, TheWriterPublishButtonFollowsTextOrContent)
{
    struct {
        NOTETAKERTYPE type;
        unsigned user;
        const char* text;
        unsigned hasContent;
        int publish;  // -1: 2007 not sent
    } const cases[] = {
        {NOTETAKER_SINGLE, 1, "x", 0, 1},
        {NOTETAKER_SINGLE, 1, "", 1, 1},
        {NOTETAKER_SINGLE, 1, "", 0, 0},
        {NOTETAKER_CLOSED_CAPTIONS, 1, "", 0, 0},
        {NOTETAKER_SINGLE, 0, "x", 1, -1},
        {NOTETAKER_ALL_PARTICIPANTS, 1, "x", 1, -1},
    };
    for (const auto& c : cases) {
        CClientHarness harness;
        CNoteClient& client = harness.Join(1, c.type, c.user);
        harness.Type(client, c.text);
        client.m_bHasContent = c.hasContent;
        CClientTraceCapture trace;
        client.OnTick();
        EXPECT_EQ(c.publish < 0 ? 0u : 1u, trace.PanelMessages({NOTEUI_ENABLE_PUBLISH}).size()) << c.type << "/" << c.user;
        if (c.publish >= 0) {
            EXPECT_EQ(c.publish == 1, ViewOf(client).IsPublishEnabled());
        }
    }
}

}  // namespace
