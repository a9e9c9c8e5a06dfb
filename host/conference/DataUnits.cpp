// Data-unit envelopes and their sealed form.
#include "conference/DataUnits.h"

#include "conference/SealedRecords.h"
#include "transport/DataPdu.h"

#include <climits>
#include <cstring>

std::string BuildDataUnitEnvelope(unsigned fromAttachId, unsigned toAttachId, short modifiedFlag,
                                  const std::string& payload)
{
    if (payload.size() > static_cast<std::size_t>(INT_MAX - CDataPdu::kHeaderLen)) return std::string();
    // The header comes from CDataPdu itself; without a payload buffer it writes the header only
    // (its SetData deliberately never reads the data), and the payload is copied in after it.
    CDataPdu pdu;
    pdu.SetUserFrom(static_cast<int>(fromAttachId));
    pdu.SetUserTo(static_cast<int>(toAttachId));
    pdu.SetModifiedFlag(modifiedFlag);
    pdu.SetDataLen(static_cast<int>(payload.size()));
    std::string envelope(static_cast<std::size_t>(pdu.GetSendDataLen()), '\0');
    pdu.SerializeToBuf(&envelope[0]);
    if (!payload.empty()) std::memcpy(&envelope[CDataPdu::kHeaderLen], payload.data(), payload.size());
    return envelope;
}

std::string SealDataUnit(const CSealedRecords& sealer, unsigned fromAttachId, unsigned toAttachId,
                         short modifiedFlag, const std::string& payload)
{
    constexpr std::size_t kChunk = kMaxSealedEnvelope - CDataPdu::kHeaderLen;
    std::string sequence;
    std::size_t pos = 0;
    do {
        const std::size_t take = payload.size() - pos < kChunk ? payload.size() - pos : kChunk;
        const std::string envelope =
            BuildDataUnitEnvelope(fromAttachId, toAttachId, modifiedFlag, payload.substr(pos, take));
        const std::string record = sealer.Seal(envelope.data(), envelope.size());
        if (record.empty()) return std::string();
        AppendSealedRecord(&sequence, record);
        pos += take;
    } while (pos < payload.size());
    return sequence;
}
