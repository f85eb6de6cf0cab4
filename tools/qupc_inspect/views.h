// The forms in which `show` prints items, one after another.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "items.h"

namespace inspect {

/// Everything printed so far stays right whatever comes: a view can follow a capture that is still being written.
class View {
public:
    virtual ~View() = default;

    /// What stands in front of the first item. `masked`: the capture's texts are.
    virtual std::string head(bool masked) = 0;
    virtual std::string of(const Item& item) = 0;
};

class Table : public View {
public:
    /// `hex`: the bytes of each packet too.
    explicit Table(bool hex) : mHex(hex) {}

    std::string head(bool masked) override;
    std::string of(const Item& item) override;

private:
    bool mHex;
    std::optional<std::int64_t> mFirst; ///< times are counted from the first item on
};

/// Lines of a capture, with packets decoded: `encode` and every other command read them again.
class JsonLines : public View {
public:
    std::string head(bool masked) override;
    std::string of(const Item& item) override;
};

/// A sequence diagram.
class Mermaid : public View {
public:
    std::string head(bool masked) override;
    std::string of(const Item& item) override;
};

/// A packet in a line: `Notify #2  player-state 2, phone-name "Handset A"`.
std::string summaryOf(const Item& item);

} // namespace inspect
