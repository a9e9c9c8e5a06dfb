// CSealedRecords: the authenticated cipher of a PKI meeting. A sealed record is printable text:
// "S" followed by the padded standard base64 of a 24-byte nonce and the secretbox (XSalsa20 and
// Poly1305) of the plain bytes, under one random key per meeting. A sealed-record sequence is,
// for each record, its length in decimal followed at once by the record; the leading "S" ends
// the number. Single-threaded use; the key never leaves the object.
// MakeSealedRecordsKey makes a fresh random key for a meeting whose processes share it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class CSealedRecords {
public:
    // Results of Open besides 0.
    enum EOpenResult { kNotARecord = 1, kBadBase64 = 2, kTooShort = 3, kAuthFailed = 4, kTooLong = 5, kNoCipher = 6 };
    // The longest record Open accepts: far above what Seal makes from a bounded envelope, and a
    // bound on what a hostile record can make us allocate.
    static constexpr std::size_t kMaxRecordLength = 16u * 1024u * 1024u;

    static constexpr std::size_t kKeyLength = 32;

    // A fresh random key. Without a working cipher library nothing seals or opens.
    CSealedRecords();
    // The given key (every process of a meeting uses the same one); unusable unless the key is
    // kKeyLength bytes long.
    CSealedRecords(const unsigned char* key, std::size_t length);
    ~CSealedRecords();
    CSealedRecords(const CSealedRecords&) = delete;
    CSealedRecords& operator=(const CSealedRecords&) = delete;

    bool IsUsable() const { return m_bUsable; }

    // The record text for plain[0, length); empty when unusable.
    std::string Seal(const void* plain, std::size_t length) const;
    // Opens record[0, length) into *plain. 0 on success; otherwise an EOpenResult and *plain
    // is left empty.
    int Open(const unsigned char* record, std::size_t length, std::vector<unsigned char>* plain) const;

private:
    bool m_bUsable;
    unsigned char m_aKey[kKeyLength];
};

// A fresh random key of CSealedRecords::kKeyLength bytes; empty when the cipher library fails.
std::string MakeSealedRecordsKey();

// Appends record to sequence with its decimal length in front.
void AppendSealedRecord(std::string* sequence, const std::string& record);
// Splits a sealed-record sequence into its records. False (records as far as read) when a
// length is missing, zero, or runs past the end.
bool SplitSealedSequence(const std::string& sequence, std::vector<std::string>* records);
