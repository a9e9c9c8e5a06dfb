// The caption lines of a recorded meeting as the plug-in shows them, each timed by the item that
// made it appear. Nothing of the plug-in's item format is read here: the items are put, one at
// a time and in their order, into an in-process meeting where a plug-in instance joined as a
// reader of the closed captions, and after each put the lines its panel completed are taken.
#pragma once

#include "conference/Meeting.h"
#include "loader/NotePlugin.h"

#include <string>
#include <vector>

struct CTimedLine {
    std::string strText;
    double dArrival;  // the item's arrival (reference-date seconds, as CRecordedItem)
};

// items: one cache's items in id order. false, with a one-line reason, when the in-process
// meeting could not be joined.
bool ReplayCaptions(CNotePlugin& plugin, const std::vector<CRecordedItem>& items, std::vector<CTimedLine>& lines,
                    std::string& error);
