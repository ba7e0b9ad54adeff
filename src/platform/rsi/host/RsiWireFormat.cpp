#include "rsi/host/RsiWireFormat.h"

#include "rsi/RequestType.h"

#include <cctype>

namespace qel::rsi::client::host::wire {
namespace {

bool isUnreserved(unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~';
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

std::string pathOf(Request const& request) {
    std::string const uri = uriOf(request);
    return uri.front() == '/' ? uri : "/" + uri;
}

std::string encodeQuery(std::map<std::string, std::string> const& parameters) {
    std::string query;
    for (auto const& [key, value] : parameters) {
        if (!query.empty()) {
            query += '&';
        }
        query += percentEncode(key) + "=" + percentEncode(value);
    }
    return query;
}

std::map<std::string, std::string> decodeQuery(std::string_view query) {
    std::map<std::string, std::string> parameters;
    while (!query.empty()) {
        auto const end = query.find('&');
        std::string_view const pair = query.substr(0, end);
        query = end == std::string_view::npos ? std::string_view() : query.substr(end + 1);
        if (pair.empty()) {
            continue;
        }
        auto const equals = pair.find('=');
        std::string_view const value = equals == std::string_view::npos ? std::string_view() : pair.substr(equals + 1);
        parameters[percentDecode(pair.substr(0, equals))] = percentDecode(value);
    }
    return parameters;
}

std::string targetOf(Request const& request) {
    std::string const query = encodeQuery(request.queryParameters);
    return query.empty() ? pathOf(request) : pathOf(request) + "?" + query;
}

std::string percentEncode(std::string_view text) {
    static constexpr char HEX[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (char const c : text) {
        auto const byte = static_cast<unsigned char>(c);
        if (isUnreserved(byte)) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += HEX[byte >> 4];
            encoded += HEX[byte & 0x0F];
        }
    }
    return encoded;
}

std::string percentDecode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+') {
            decoded += ' ';
        } else if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

}  // namespace qel::rsi::client::host::wire
