#include "support/json.h"

#include <charconv>
#include <stdexcept>

namespace support {

namespace {

class Reader {
public:
    explicit Reader(std::string_view text) : mRest(text) {}

    Json value() {
        switch (peek()) {
        case '{':
            return Json(object());
        case '[':
            return Json(list());
        case '"':
            return Json(text());
        case 't':
            return word("true", 1);
        case 'f':
            return word("false", 0);
        default:
            return Json(number());
        }
    }

    void expectEnd() {
        if (!mRest.empty()) {
            fail("more after the value");
        }
    }

private:
    [[noreturn]] void fail(const std::string& what) {
        throw std::runtime_error("JSON: " + what + " before: " + std::string(mRest.substr(0, 40)));
    }

    char peek() {
        if (mRest.empty()) {
            fail("unexpected end");
        }
        return mRest.front();
    }

    char take() {
        const char c = peek();
        mRest.remove_prefix(1);
        return c;
    }

    bool accept(char c) {
        if (peek() != c) {
            return false;
        }
        take();
        return true;
    }

    void expect(char c) {
        if (take() != c) {
            fail(std::string("no ") + c);
        }
    }

    Json word(std::string_view expected, std::int64_t meaning) {
        if (mRest.substr(0, expected.size()) != expected) {
            fail("not " + std::string(expected));
        }
        mRest.remove_prefix(expected.size());
        return Json(meaning);
    }

    Json::Object object() {
        Json::Object members;
        expect('{');
        while (!accept('}')) {
            if (!members.empty()) {
                expect(',');
            }
            std::string name = text();
            expect(':');
            members.emplace(std::move(name), value());
        }
        return members;
    }

    Json::List list() {
        Json::List items;
        expect('[');
        while (!accept(']')) {
            if (!items.empty()) {
                expect(',');
            }
            items.push_back(value());
        }
        return items;
    }

    std::string text() {
        std::string out;
        expect('"');
        while (!accept('"')) {
            char c = take();
            if (c == '\\') {
                c = take();
                out.push_back(c == 'u' ? codeUnit() : c);
            } else {
                out.push_back(c);
            }
        }
        return out;
    }

    // The record writes one escape for each byte: \u00XX.
    char codeUnit() {
        unsigned value = 0;
        const std::string_view digits = mRest.substr(0, 4);
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (digits.size() != 4 || result.ptr != digits.data() + 4 || value > 0xFF) {
            fail("not an escaped byte");
        }
        mRest.remove_prefix(4);
        return static_cast<char>(value);
    }

    std::int64_t number() {
        std::int64_t value = 0;
        const auto result = std::from_chars(mRest.data(), mRest.data() + mRest.size(), value);
        if (result.ec != std::errc()) {
            fail("not a number");
        }
        mRest.remove_prefix(static_cast<std::size_t>(result.ptr - mRest.data()));
        return value;
    }

    std::string_view mRest;
};

template <typename Kind, typename Value>
const Kind& as(const Value& value, const char* what) {
    if (const auto* kind = std::get_if<Kind>(&value)) {
        return *kind;
    }
    throw std::runtime_error(std::string("JSON value is no ") + what);
}

} // namespace

Json Json::parse(std::string_view text) {
    Reader reader(text);
    Json value = reader.value();
    reader.expectEnd();
    return value;
}

std::int64_t Json::number() const {
    return as<std::int64_t>(mValue, "number");
}

const std::string& Json::text() const {
    return as<std::string>(mValue, "text");
}

const Json::List& Json::list() const {
    return as<List>(mValue, "list");
}

const Json& Json::at(const std::string& name) const {
    const auto& members = as<Object>(mValue, "object");
    const auto found = members.find(name);
    if (found == members.end()) {
        throw std::runtime_error("JSON object has no member " + name);
    }
    return found->second;
}

bool Json::has(const std::string& name) const {
    const auto* members = std::get_if<Object>(&mValue);
    return members != nullptr && members->count(name) != 0;
}

} // namespace support
