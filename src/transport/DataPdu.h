// CDataPdu: the binary envelope of a whole-text data unit sent between participants: a packed
// 14-byte little-endian header (sender, addressee, payload length, modified flag) followed by
// the payload. A received buffer may hold several envelopes back to back; their payloads are
// joined into one zero-terminated buffer. Used by one thread from creation to deletion.
#pragma once

#include <memory>

class CDataPdu {
public:
    // Size of the header on the wire.
    static constexpr int kHeaderLen = 14;

    CDataPdu();
    virtual ~CDataPdu();
    CDataPdu(const CDataPdu&) = delete;
    CDataPdu& operator=(const CDataPdu&) = delete;

    void SetUserFrom(int nUserFrom) { m_nUserFrom = nUserFrom; }
    int GetUserFrom() const { return m_nUserFrom; }
    void SetUserTo(int nUserTo) { m_nUserTo = nUserTo; }
    int GetUserTo() const { return m_nUserTo; }
    void SetModifiedFlag(short sFlag) { m_sModifiedFlag = sFlag; }
    short GetModifiedFlag() const { return m_sModifiedFlag; }
    // Plain field access: neither allocates nor checks the buffer.
    void SetDataLen(int nDataLen) { m_nDataLen = nDataLen; }
    int GetDataLen() const { return m_nDataLen; }

    // Replaces the payload by len zero bytes (plus a terminator); data is never read.
    void SetData(const char* data, int len);
    // The zero-terminated payload, or null when none is held.
    const char* GetData() const { return m_pDataBuf.get(); }
    // Size of the envelope on the wire: payload length plus the header.
    int GetSendDataLen() const;

    // Writes the envelope in wire layout. REQUIRES: dst holds at least GetSendDataLen() bytes.
    void SerializeToBuf(void* dst);
    // Parses the envelopes in src[0, len). Below one header nothing changes. Parsing stops at an
    // envelope whose length field is negative or exceeds the bytes that remain, keeping the
    // payloads (and header fields) read before it.
    void SerializeFromBuf(void* src, int len);

private:
    // Frees the payload and allocates size zeroed bytes; false (and no payload) when out of memory.
    bool AllocBuffer(int size);
    void FreeBuffer();

    int m_nUserFrom;
    int m_nUserTo;
    short m_sModifiedFlag;
    int m_nDataLen;
    std::unique_ptr<char[]> m_pDataBuf;
    int m_nBufSize;  // bytes allocated in m_pDataBuf, which SetDataLen may disagree with
};

// Byte-order hook of the compressed-block framing: deliberately leaves the data as it is.
void Swap(void* data, int size);
// Every supported machine is little-endian, so callers that swap otherwise never swap.
bool MacIsLittleEndian();
