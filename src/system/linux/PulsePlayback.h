#pragma once

#include "system/SoundOutput.h"

#include <memory>

namespace mirrowisp {

// A libpulse playback stream of one float channel at the server's rate, filled on libpulse's thread.
class PulsePlayback final : public SoundOutput {
public:
    PulsePlayback();
    ~PulsePlayback() override;

    bool open(Render render) override;
    bool isOpen() const override;
    void resume() override;
    void pause() override;

private:
    struct Loop;
    std::unique_ptr<Loop> loop_;
};

} // namespace mirrowisp
