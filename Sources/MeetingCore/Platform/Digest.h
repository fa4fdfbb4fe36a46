#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace meetingcore {

/// A running SHA-256 (FIPS 180-4).
class SHA256 {
public:
    SHA256();
    ~SHA256();
    SHA256(const SHA256&) = delete;
    SHA256& operator=(const SHA256&) = delete;

    void update(std::string_view bytes);

    /// Ends the digest and returns it as 64 lower-case hexadecimal digits. Call once.
    std::string hex();

    /// The digest of one piece of data in base 64 (RFC 4648).
    static std::string base64(std::string_view bytes);

    /// The digest of one piece of data, as 64 lower-case hexadecimal digits.
    static std::string hex(std::string_view bytes);

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

}  // namespace meetingcore
