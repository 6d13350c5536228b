// What the plugin allows the images of one server together, as the plugin itself reckons it.
#pragma once

#include "config/allowed_rate.h"

#include <cstdint>
#include <optional>
#include <string>

class allowance {
  public:
    /// Reads the settings files, which the plugin did when it opened `server`.
    allowance(const std::string& server, operation_type_t direction);
    /// With settings at hand. `sample_interval` 0: nothing is throttled.
    allowance(const throttling_config_s& config, operation_type_t direction)
        : settings_(config), direction_(direction) {}

    /// Bytes per second at the local time now, shared among as many connections as the engine last
    /// spoke of; none while nothing is throttled.
    std::optional<uint64_t> now() const;
    /// Nothing can be moved: a call that transfers or closes would end the process.
    bool is_nothing() const { return now() == std::optional<uint64_t>(0); }
    operation_type_t direction() const { return direction_; }

  private:
    throttling_config_s settings_;
    operation_type_t direction_;
};
