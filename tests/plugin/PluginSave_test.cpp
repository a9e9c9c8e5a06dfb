// Saving and exporting through the loaded plug-in: the host's save calls, the panel's save
// dialog answered by the host, the file the panel writes, refused targets and their alert.
#include "PluginFixture.h"
#include "../panel/SaveChooser.h"
#include "../platform/ScopedLanguage.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

class PluginSave : public PluginTest {
protected:
    ~PluginSave() override { std::filesystem::remove_all(m_strDir); }

    // A writer whose panel holds text the tick has seen.
    std::unique_ptr<CPluginParticipant> Writer(NOTETAKERTYPE type, const char* text)
    {
        auto writer = Join(1, type, NOTE_USER_WRITER);
        writer->Panel()->Type(text);
        PumpMainLoop(0.12);
        return writer;
    }
    static std::string Read(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    std::string m_strDir = [] {
        char dir[] = "/tmp/pluginsaveXXXXXX";
        return std::string(mkdtemp(dir) ? dir : "/nonexistent");
    }();
};

TEST_P(PluginSave, SaveAsksOnceSaveAsAsksAlwaysCancelWritesNothing)
{
    auto writer = Writer(NOTETAKER_SINGLE, "first");
    void* instance = writer->Instance();
    EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(instance));
    const std::string path = m_strDir + "/minutes.txt";
    {
        CScopedSaveChooser chooser(true, path);
        EXPECT_EQ(0, m_plugin.NoteFileSave(instance));
        EXPECT_EQ("first", Read(path));
        EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(instance));
        writer->Panel()->Type("\nsecond");
        PumpMainLoop(0.12);
        EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(instance));
        EXPECT_EQ(0, m_plugin.NoteFileSave(instance));
        EXPECT_EQ("first\nsecond", Read(path));
        EXPECT_EQ((std::vector<std::string>{"Save Notes As"}), chooser.m_vecTitles);
        EXPECT_EQ((std::vector<std::string>{"Notes.txt"}), chooser.m_vecDefaultNames);
    }
    unlink(path.c_str());
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(instance));  // no chooser: the dialog is cancelled
    EXPECT_NE(0, access(path.c_str(), F_OK));
    // The Save button saves to the file chosen last, without asking.
    writer->Panel()->Type(" more");
    PumpMainLoop(0.12);
    writer->Panel()->ClickSave();
    EXPECT_EQ("first\nsecond more", Read(path));
    EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(instance));

    // The plug-in finds its catalogues beside its own file.
    CScopedLanguage german("de");
    CScopedSaveChooser chooser;
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(instance));
    EXPECT_EQ((std::vector<std::string>{"Notizen speichern unter"}), chooser.m_vecTitles);
}

TEST_P(PluginSave, ExportWritesTheLocalisedNameIntoTheFolderOrAlertsWhenRefused)
{
    const struct {
        NOTETAKERTYPE type;
        const char* slash;
        const char* name;
        const char* title;  // of the save dialog
    } cases[] = {
        {NOTETAKER_SINGLE, "", "Notes.txt", "Save Notes As"},
        {NOTETAKER_ALL_PARTICIPANTS, "/", "Notes.txt", "Save Notes As"},
        {NOTETAKER_CLOSED_CAPTIONS, "/", "Closed Captions.txt", "Save Closed Captions As"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto writer = Writer(c.type, "exported");
        EXPECT_EQ(0, m_plugin.NoteSaveFileToFolder(writer->Instance(), (m_strDir + c.slash).c_str()));
        EXPECT_EQ("exported", Read(m_strDir + "/" + c.name));
        EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(writer->Instance()));
        unlink((m_strDir + "/" + c.name).c_str());
        CScopedSaveChooser chooser;
        m_plugin.NoteFileSaveAs(writer->Instance());
        EXPECT_EQ((std::vector<std::string>{c.title}), chooser.m_vecTitles);
        EXPECT_EQ((std::vector<std::string>{c.name}), chooser.m_vecDefaultNames);
    }
    EXPECT_TRUE(m_ui.m_vecAlerts.empty());

    auto writer = Writer(NOTETAKER_SINGLE, "new text");
    const std::string target = m_strDir + "/Notes.txt";
    // Read-only for anybody but root; root writes any file, so it gets a folder in the way.
    if (geteuid() != 0) {
        std::ofstream(target) << "kept";
        ASSERT_EQ(0, chmod(target.c_str(), 0444));
    } else {
        ASSERT_EQ(0, mkdir(target.c_str(), 0700));
    }
    EXPECT_EQ(0, m_plugin.NoteSaveFileToFolder(writer->Instance(), m_strDir.c_str()));
    EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(writer->Instance()));
    if (geteuid() != 0) {
        EXPECT_EQ("kept", Read(target));
    }
    ASSERT_EQ(1u, m_ui.m_vecAlerts.size());
    EXPECT_EQ("Velmar Zentor Notes", m_ui.m_vecAlerts[0].title);
    EXPECT_EQ("You cannot replace \"Notes.txt\" because you do not have the right privileges.", m_ui.m_vecAlerts[0].text);
}

NOTE_ON_EVERY_CONFERENCE(PluginSave);

}  // namespace
