// Whole-text data units as the local meeting sends them: CDataPdu envelopes for the direct
// route, and for a PKI meeting's resource messages the same text as a sealed-record sequence,
// one envelope per record so that each record opens to a complete envelope.
#pragma once

#include <cstddef>
#include <string>

class CSealedRecords;

// The most envelope bytes one sealed record carries.
constexpr std::size_t kMaxSealedEnvelope = 16u * 1024u;

// One envelope (14-byte header, then payload) in wire layout; empty when the payload is too
// long for the header's length field.
std::string BuildDataUnitEnvelope(unsigned fromAttachId, unsigned toAttachId, short modifiedFlag,
                                  const std::string& payload);
// payload cut into envelopes of at most kMaxSealedEnvelope bytes (one envelope for an empty
// payload), each sealed as one record, as a sequence. Empty when sealing fails.
std::string SealDataUnit(const CSealedRecords& sealer, unsigned fromAttachId, unsigned toAttachId,
                         short modifiedFlag, const std::string& payload);
