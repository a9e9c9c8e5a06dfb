// The note PDU formats: base, segment, change, note info and save info PDUs.
#pragma once

#include "xml/NoteChangeInfoPDU.h"
#include "xml/NoteInfoPDU.h"
#include "xml/NoteSaveInfoPDU.h"
#include "xml/NoteSegInfo.h"
#include "xml/OrvNoteBaseXML.h"
