// Saving and exporting through the loaded plug-in: the host's save calls, the panel's save
// dialog answered by the host, the file the panel writes, refused targets and their alert.
#include "PluginFixture.h"
#include "../panel/SaveChooser.h"
#include "../platform/ScopedLanguage.h"

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace {

class PluginSave : public PluginTest {
protected:
    PluginSave()
    {
        char dir[] = "/tmp/pluginsaveXXXXXX";
        m_strDir = mkdtemp(dir) ? dir : "";
        NoteHostUI_SetWarningCallback(&OnWarning, this);
    }
    ~PluginSave() override
    {
        NoteHostUI_SetWarningCallback(nullptr, nullptr);
        if (DIR* dir = opendir(m_strDir.c_str())) {
            while (dirent* entry = readdir(dir)) {
                const std::string path = m_strDir + "/" + entry->d_name;
                if (entry->d_name[0] != '.' && unlink(path.c_str()) != 0) rmdir(path.c_str());
            }
            closedir(dir);
        }
        rmdir(m_strDir.c_str());
    }

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
    static bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

    std::string m_strDir;
    std::vector<std::string> m_vecWarnings;  // "title|text"

private:
    static void OnWarning(void* context, const char* title, const char* text)
    {
        static_cast<PluginSave*>(context)->m_vecWarnings.push_back(std::string(title) + "|" + text);
    }
};

TEST_P(PluginSave, SaveAsksOnceThenSavesToTheSameFile)
{
    auto writer = Writer(NOTETAKER_SINGLE, "first");
    void* instance = writer->Instance();
    EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(instance));
    const std::string path = m_strDir + "/minutes.txt";
    CScopedSaveChooser chooser(true, path);

    EXPECT_EQ(0, m_plugin.NoteFileSave(instance));
    EXPECT_EQ("first", Read(path));
    EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(instance));
    EXPECT_EQ((std::vector<std::string>{"Save Notes As"}), chooser.m_vecTitles);
    EXPECT_EQ((std::vector<std::string>{"Notes.txt"}), chooser.m_vecDefaultNames);

    writer->Panel()->Type("\nsecond");
    PumpMainLoop(0.12);
    EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(instance));
    EXPECT_EQ(0, m_plugin.NoteFileSave(instance));
    EXPECT_EQ("first\nsecond", Read(path));
    EXPECT_EQ(1u, chooser.m_vecTitles.size());
}

TEST_P(PluginSave, SaveAsChosenAndCancelled)
{
    auto writer = Writer(NOTETAKER_CLOSED_CAPTIONS, "caption");
    const std::string path = m_strDir + "/cc.txt";
    {
        CScopedSaveChooser chooser(true, path);
        EXPECT_EQ(0, m_plugin.NoteFileSaveAs(writer->Instance()));
        EXPECT_EQ("caption", Read(path));
        EXPECT_EQ((std::vector<std::string>{"Save Closed Captions As"}), chooser.m_vecTitles);
        EXPECT_EQ((std::vector<std::string>{"Closed Captions.txt"}), chooser.m_vecDefaultNames);
    }
    // Without a chooser the dialog is cancelled: -1, nothing written.
    unlink(path.c_str());
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(writer->Instance()));
    EXPECT_FALSE(Exists(path));
    // The Save button saves to the file chosen last, without asking.
    writer->Panel()->Type(" more");
    PumpMainLoop(0.12);
    EXPECT_EQ(1, m_plugin.NoteGetFileSaveState(writer->Instance()));
    writer->Panel()->ClickSave();
    EXPECT_EQ("caption more", Read(path));
    EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(writer->Instance()));
}

TEST_P(PluginSave, TheDialogSpeaksTheHostsLanguage)
{
    // The plug-in finds its catalogues beside its own file.
    auto writer = Writer(NOTETAKER_SINGLE, "Text");
    CScopedLanguage german("de");
    CScopedSaveChooser chooser;
    EXPECT_EQ(-1, m_plugin.NoteFileSaveAs(writer->Instance()));
    EXPECT_EQ((std::vector<std::string>{"Notizen speichern unter"}), chooser.m_vecTitles);
}

TEST_P(PluginSave, ExportWritesTheLocalisedNameIntoTheFolder)
{
    struct {
        NOTETAKERTYPE type;
        bool slash;
        const char* name;
    } const cases[] = {
        {NOTETAKER_SINGLE, false, "Notes.txt"},
        {NOTETAKER_ALL_PARTICIPANTS, true, "Notes.txt"},
        {NOTETAKER_CLOSED_CAPTIONS, true, "Closed Captions.txt"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto writer = Writer(c.type, "exported");
        const std::string folder = m_strDir + (c.slash ? "/" : "");
        EXPECT_EQ(0, m_plugin.NoteSaveFileToFolder(writer->Instance(), folder.c_str()));
        EXPECT_EQ("exported", Read(m_strDir + "/" + c.name));
        EXPECT_EQ(0, m_plugin.NoteGetFileSaveState(writer->Instance()));
        unlink((m_strDir + "/" + c.name).c_str());
    }
    EXPECT_TRUE(m_vecWarnings.empty());
}

TEST_P(PluginSave, ARefusedTargetIsLeftAloneWithAnAlert)
{
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
    EXPECT_EQ((std::vector<std::string>{"Velmar Zentor Notes|You cannot replace \"Notes.txt\" "
                                        "because you do not have the right privileges."}),
              m_vecWarnings);
}

NOTE_ON_EVERY_CONFERENCE(PluginSave);

}  // namespace
