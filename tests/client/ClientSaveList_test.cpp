// The save record's change list: SetSavePduCacheID looks the newest equal entry up in an index
// instead of walking the list, and the list keeps copies of changes without their XML trees.
#include "client/CNoteClient.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

// Equality as the client defines it, from the offsets' text rather than any cached number.
bool SameChange(CNoteChangeInfoPDU& a, CNoteChangeInfoPDU& b)
{
    for (int which : {0, 1})
        if (atoi(a.GetOffSet(which).c_str()) != atoi(b.GetOffSet(which).c_str())) return false;
    return a.GetNoteMsg() == b.GetNoteMsg();
}

// Few values, so that equal changes are common: spellings of one number, and texts that are
// equal only once recovered ("\n\n" reads as "\r\n") or once their markers are left out.
CNoteChangeInfoPDU RandomChange(std::mt19937& rng)
{
    static const char* const kOffsets[] = {"0", "", "5", "05", "5x", "7"};
    static const char* const kTexts[] = {"", "a", "b", "a\r\nb", "a\n\nb", "#m#a", "a]]>b"};
    CNoteChangeInfoPDU pdu;
    if (rng() % 3 == 0) pdu.AddNetInfo("#m#");
    pdu.SetNoteMsg(kTexts[rng() % 7]);
    pdu.SetOffSet(kOffsets[rng() % 6], 0);
    pdu.SetOffSet(kOffsets[rng() % 3], 1);
    return pdu;
}

TEST(ClientSaveList, LookupsFindTheEntryAWalkFromTheNewestFindsWhateverHappensToTheList)
{
    std::mt19937 rng(20240611);
    CNoteClient client;
    std::vector<CNoteChangeInfoPDU>& list = client.m_SaveInfo.m_vecChangeInfoPdu;
    std::vector<CNoteChangeInfoPDU> parked;
    client.m_nNotePadType = NOTETAKER_CLOSED_CAPTIONS;
    int nextId = 0;
    for (int step = 0; step < 6000; ++step) {
        const size_t at = list.empty() ? 0 : rng() % list.size();
        // Mostly lookups, so that the list grows, with every other way to change it in between.
        switch (list.empty() ? 0 : rng() % 32) {
        case 1: case 2: list.push_back(RandomChange(rng)); break;
        case 3: list[at].SetNoteMsg(RandomChange(rng).GetNoteMsg()); break;
        case 4: list[at].SetOffSet(RandomChange(rng).GetOffSet(0), static_cast<int>(rng() % 2)); break;
        case 5: list[at] = RandomChange(rng); break;
        case 6: {
            CNoteChangeInfoPDU other = RandomChange(rng);
            other.GenerateXMLPDU();
            list[at].ParseXMLPDU(other.PrintCompact());
            break;
        }
        case 7: std::swap(list[at], list.back()); break;
        case 8: list.erase(list.begin() + static_cast<long>(at)); break;
        case 9:
            if (rng() % 8 == 0) list = std::vector<CNoteChangeInfoPDU>(rng() % 4, RandomChange(rng));
            break;
        case 10: list.swap(parked); break;  // another list, perhaps looked up before, comes back
        case 11:
            // The single note taker's list is emptied by every change it takes in.
            if (rng() % 8 == 0)
                client.m_nNotePadType = client.m_nNotePadType == NOTETAKER_SINGLE ? NOTETAKER_CLOSED_CAPTIONS
                                                                                  : NOTETAKER_SINGLE;
            break;
        default: {
            CNoteChangeInfoPDU pdu = RandomChange(rng);
            long expected = -1;
            for (size_t i = list.size(); i-- > 0 && expected < 0;)
                if (SameChange(list[i], pdu)) expected = static_cast<long>(i);
            const size_t before = list.size();
            const int id = ++nextId;
            ASSERT_EQ(client.SetSavePduCacheID(pdu, static_cast<unsigned>(id)), expected < 0 ? 1 : 0) << step;
            if (expected >= 0) {
                ASSERT_EQ(list.size(), before);
                for (size_t i = 0; i < list.size(); ++i)
                    ASSERT_EQ(list[i].GetCacheId_INT() == id, static_cast<long>(i) == expected) << step;
            } else if (atoi(pdu.GetOffSet(1).c_str()) != 0 || !pdu.GetNoteMsg().empty()) {
                ASSERT_EQ(list.size(), client.m_nNotePadType == NOTETAKER_SINGLE ? 1u : before + 1) << step;
                ASSERT_TRUE(SameChange(list.back(), pdu));
                ASSERT_EQ(list.back().GetCacheId_INT(), id);
            }
        }
        }
    }
}

TEST(ClientSaveList, ACopyWithoutItsDocumentPrintsAsTheChangeDoes)
{
    CNoteChangeInfoPDU change;
    change.AddNetInfo("#m#");
    change.SetNoteMsg("one ]]> two#m#three\r\n");
    change.SetOffSet("12", 0);
    change.SetOffSet("3", 1);
    change.SetCacheId(44);
    change.SetUniqueId(7);
    change.GenerateXMLPDU();
    CNoteChangeInfoPDU parsed;
    ASSERT_TRUE(parsed.ParseXMLPDU(change.PrintCompact()));

    for (CNoteChangeInfoPDU* original : {&change, &parsed}) {
        CNoteChangeInfoPDU copy = original->CopyWithoutDocument();
        EXPECT_EQ(copy.FirstChild(), nullptr);
        EXPECT_EQ(copy.GetNetInfoCount_INT(), original->GetNetInfoCount_INT());
        copy.GenerateXMLPDU();
        original->GenerateXMLPDU();
        EXPECT_EQ(copy.PrintCompact(), original->PrintCompact());
    }
}

}  // namespace
