#include "MeetingCore/Platform/Digest.h"

#include <array>
#include <stdexcept>

#include <openssl/evp.h>

namespace meetingcore {

struct SHA256::Context {
    EVP_MD_CTX* handle = EVP_MD_CTX_new();

    Context() = default;
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context() { EVP_MD_CTX_free(handle); }
};

namespace {

void require(int result) {
    if (result != 1) throw std::runtime_error("SHA-256 ist auf diesem System nicht verfügbar.");
}

}  // namespace

SHA256::SHA256() : context_(std::make_unique<Context>()) {
    require(context_->handle == nullptr ? 0 : EVP_DigestInit_ex(context_->handle, EVP_sha256(), nullptr));
}

SHA256::~SHA256() = default;

void SHA256::update(std::string_view bytes) {
    require(EVP_DigestUpdate(context_->handle, bytes.data(), bytes.size()));
}

std::string SHA256::hex() {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    require(EVP_DigestFinal_ex(context_->handle, digest.data(), &length));
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(std::size_t{length} * 2);
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 0x0F];
    }
    return text;
}

std::string SHA256::base64(std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    require(EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr));
    std::array<unsigned char, std::size_t{2} * EVP_MAX_MD_SIZE> text{};
    const auto size = EVP_EncodeBlock(text.data(), digest.data(), static_cast<int>(length));
    return {text.begin(), text.begin() + size};
}

std::string SHA256::hex(std::string_view bytes) {
    SHA256 digest;
    digest.update(bytes);
    return digest.hex();
}

}  // namespace meetingcore
