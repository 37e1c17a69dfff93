#pragma once

#include <cstddef>
#include <functional>

namespace mirrowisp {

// A pull-model output of one float channel. `render` is called on the output's own real-time
// thread with the buffer to fill and the rate in use.
class SoundOutput {
public:
    using Render = std::function<void(float* out, std::size_t frames, double sampleRate)>;
    virtual ~SoundOutput() = default;
    // Begins connecting, returns at once; false when it cannot even begin. A later failure shows
    // as isOpen() false, and open() may be called again.
    virtual bool open(Render render) = 0;
    virtual bool isOpen() const = 0;
    virtual void resume() = 0;
    // Keeps the stream but lets the hardware rest.
    virtual void pause() = 0;
};

} // namespace mirrowisp
