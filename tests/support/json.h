// As much JSON as the service's record needs: objects, lists, texts, whole numbers, and true and false as
// the numbers 1 and 0.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace support {

class Json {
public:
    using List = std::vector<Json>;
    using Object = std::map<std::string, Json>;

    Json() = default;

    explicit Json(std::variant<std::int64_t, std::string, List, Object> value) : mValue(std::move(value)) {}

    // Throws std::runtime_error when the text is not one value of these kinds.
    static Json parse(std::string_view text);

    // Each throws std::runtime_error when the value is of another kind, or the member is not there.
    std::int64_t number() const;
    const std::string& text() const;
    const List& list() const;
    const Json& at(const std::string& name) const;

    bool has(const std::string& name) const;

    // The member's number or text, or 0 or an empty text when there is none.
    std::int64_t numberOf(const std::string& name) const { return has(name) ? at(name).number() : 0; }

    std::string textOf(const std::string& name) const { return has(name) ? at(name).text() : std::string(); }

private:
    std::variant<std::int64_t, std::string, List, Object> mValue;
};

} // namespace support
