// Says that a run is paced by this process alone, so that nobody takes its rate for a share.
#pragma once

#include <string>

/// Whether the plugin paces that server by its default settings and counts it at no service: it is
/// of the type "global", or has no name.
bool is_paced_by_defaults(const std::string& server);

class sharing_notice {
  public:
    /// Says at once what is known of `server` before anything is moved. Nothing is said while
    /// throttling is off.
    explicit sharing_notice(const std::string& server);
    /// Says, the first time that an exchange with the service has failed, that none answers.
    void look();

  private:
    bool is_said_ = false;
};
