#include "player/player.h"

namespace vexel {

Player::Player() = default;

Player::~Player() = default;

}  // namespace vexel
