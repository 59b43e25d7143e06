// Player: one opened panorama video and its playback state, behind a PlayerHandle.
#pragma once

#include <cstdint>

namespace vexel {

enum class PlayerState : uint32_t {
    Playing = 0,
    Paused = 1,
    Seeking = 2,
    Stopped = 3,
    Closed = 4,
};

class Player {
public:
    Player();
    ~Player();

    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    PlayerState state = PlayerState::Closed;
};

}  // namespace vexel
