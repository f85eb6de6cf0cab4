#include <cstdlib>

namespace {

void* volatile held = nullptr;

} // namespace

int main() {
    held = std::malloc(64);
    held = nullptr;
    return 0;
}
