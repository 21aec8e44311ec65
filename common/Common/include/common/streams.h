#pragma once

#include <memory>
#include <vector>

namespace cmn {

// Random-access byte stream.
class IStream {
 public:
    // What `read` returns when `offset` is at or past the end.
    static constexpr unsigned long long kPastEnd = ~0ULL;

    virtual ~IStream() = default;
    // Returns the number of bytes read.
    virtual unsigned long long read(unsigned char* buffer, unsigned long long size,
                                    unsigned long long offset) = 0;
    // Returns the number of bytes written. `data` may lie in the stream itself.
    virtual unsigned long long write(const unsigned char* data, unsigned long long size,
                                     unsigned long long offset) = 0;
    virtual unsigned long long size() = 0;
    virtual void trunc(unsigned long long newSize) = 0;
    virtual void flush() = 0;
    // The bytes from `offset` in place, valid until the stream changes; `size` is shortened to what is there.
    virtual const unsigned char* getmem(unsigned long long offset, unsigned long long& size) = 0;
};

// A stream over a byte vector that grows as needed; gaps read as zero. Not thread-safe.
class MemStream : public IStream {
 public:
    MemStream() = default;
    explicit MemStream(std::vector<unsigned char>&& bytes);

    unsigned long long read(unsigned char* buffer, unsigned long long size,
                            unsigned long long offset) override;
    unsigned long long write(const unsigned char* data, unsigned long long size,
                             unsigned long long offset) override;
    unsigned long long size() override;
    void trunc(unsigned long long newSize) override;
    void flush() override;
    // Throws std::runtime_error when `offset` is not below the length.
    const unsigned char* getmem(unsigned long long offset, unsigned long long& size) override;

 private:
    std::vector<unsigned char> bytes_;
};

// Copies `src` to the same offsets of `dst` in pieces of at most `chunk` bytes. Throws std::runtime_error
// when a piece is read or written short.
void StreamToStream(IStream& src, IStream& dst, unsigned long long chunk);

// Replaces `bytes` by the range. Throws std::runtime_error when the stream ends before it.
void StreamToBin(IStream& stream, std::vector<unsigned char>& bytes, unsigned long long offset,
                 unsigned long long size);

std::shared_ptr<MemStream> BinToStream(std::vector<unsigned char>&& bytes);

}  // namespace cmn
