// CSealedRecords: secretbox sealing, base64 text form and the length-prefixed sequence.
#include "conference/SealedRecords.h"

#include <sodium.h>

#include <cstring>

static_assert(crypto_secretbox_KEYBYTES == CSealedRecords::kKeyLength, "the key member holds a secretbox key");

namespace {

constexpr std::size_t kNonceLen = crypto_secretbox_NONCEBYTES;
constexpr std::size_t kMacLen = crypto_secretbox_MACBYTES;
constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;

}  // namespace

CSealedRecords::CSealedRecords() : m_bUsable(sodium_init() >= 0), m_aKey{}
{
    if (m_bUsable) randombytes_buf(m_aKey, sizeof m_aKey);
}

CSealedRecords::CSealedRecords(const unsigned char* key, std::size_t length)
    : m_bUsable(sodium_init() >= 0 && key && length == kKeyLength), m_aKey{}
{
    if (m_bUsable) std::memcpy(m_aKey, key, kKeyLength);
}

CSealedRecords::~CSealedRecords()
{
    sodium_memzero(m_aKey, sizeof m_aKey);
}

std::string CSealedRecords::Seal(const void* plain, std::size_t length) const
{
    if (!m_bUsable || (length != 0 && !plain)) return std::string();
    std::vector<unsigned char> box(kNonceLen + kMacLen + length);
    randombytes_buf(box.data(), kNonceLen);
    // secretbox_easy accepts a null message only for length 0 in practice; give it a byte.
    static const unsigned char kEmpty = 0;
    const unsigned char* message = length ? static_cast<const unsigned char*>(plain) : &kEmpty;
    if (crypto_secretbox_easy(box.data() + kNonceLen, message, length, box.data(), m_aKey) != 0)
        return std::string();

    std::string text(1 + sodium_base64_ENCODED_LEN(box.size(), kVariant), '\0');
    text[0] = 'S';
    sodium_bin2base64(&text[1], text.size() - 1, box.data(), box.size(), kVariant);
    text.resize(1 + std::strlen(text.c_str() + 1));
    return text;
}

int CSealedRecords::Open(const unsigned char* record, std::size_t length, std::vector<unsigned char>* plain) const
{
    if (!plain) return kNotARecord;
    plain->clear();
    if (!m_bUsable) return kNoCipher;
    if (!record || length < 2 || record[0] != 'S') return kNotARecord;
    if (length > kMaxRecordLength) return kTooLong;

    const char* text = reinterpret_cast<const char*>(record + 1);
    const std::size_t textLen = length - 1;
    std::vector<unsigned char> box(textLen / 4 * 3 + 3);
    std::size_t boxLen = 0;
    const char* end = nullptr;
    if (sodium_base642bin(box.data(), box.size(), text, textLen, nullptr, &boxLen, &end, kVariant) != 0 ||
        end != text + textLen)
        return kBadBase64;
    if (boxLen < kNonceLen + kMacLen) return kTooShort;

    std::vector<unsigned char> out(boxLen - kNonceLen - kMacLen + 1);
    if (crypto_secretbox_open_easy(out.data(), box.data() + kNonceLen, boxLen - kNonceLen, box.data(), m_aKey) != 0)
        return kAuthFailed;
    out.pop_back();
    plain->swap(out);
    return 0;
}

std::string MakeSealedRecordsKey()
{
    if (sodium_init() < 0) return std::string();
    std::string key(CSealedRecords::kKeyLength, '\0');
    randombytes_buf(&key[0], key.size());
    return key;
}

void AppendSealedRecord(std::string* sequence, const std::string& record)
{
    if (!sequence) return;
    *sequence += std::to_string(record.size());
    *sequence += record;
}

bool SplitSealedSequence(const std::string& sequence, std::vector<std::string>* records)
{
    if (!records) return false;
    records->clear();
    std::size_t pos = 0;
    while (pos < sequence.size()) {
        std::size_t length = 0;
        std::size_t digits = 0;
        while (pos < sequence.size() && sequence[pos] >= '0' && sequence[pos] <= '9' && digits < 10) {
            length = length * 10 + static_cast<std::size_t>(sequence[pos] - '0');
            ++pos;
            ++digits;
        }
        if (digits == 0 || length == 0 || length > sequence.size() - pos) return false;
        records->push_back(sequence.substr(pos, length));
        pos += length;
    }
    return true;
}
