#pragma once

#include <cstdlib>
#include <memory>

namespace mirrowisp {

// xcb hands out replies and events allocated with malloc; they go back through free.
struct XcbFree {
    void operator()(void* p) const { std::free(p); }
};

template <typename T> using XcbReply = std::unique_ptr<T, XcbFree>;

} // namespace mirrowisp
