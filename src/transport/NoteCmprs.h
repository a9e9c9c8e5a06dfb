// CCompressEngine: the stateless zlib wrapper through which the note client compresses the XML
// PDUs it sends and decompresses those it receives. One-shot zlib streams, no header of its
// own; sizes travel in the caller's framing. Any number of threads may call it at once.
#pragma once

class CCompressEngine {
public:
    CCompressEngine();
    ~CCompressEngine();

    bool Initialize();  // always true
    void Cleanup();
    bool CanCompress();  // always true

    // Source before destination, lengths after both (not zlib's order). *destLen holds the
    // capacity of dest on entry and the size written on success. Returns zlib's status: Z_OK,
    // Z_BUF_ERROR when dest is too small, Z_MEM_ERROR, and Z_STREAM_ERROR for null arguments.
    int Compress(unsigned char* source, unsigned char* dest, unsigned long sourceLen, unsigned long* destLen);
    // As Compress; also Z_DATA_ERROR when source is not a complete zlib stream.
    int Decompress(unsigned char* source, unsigned char* dest, unsigned long sourceLen, unsigned long* destLen);
};
