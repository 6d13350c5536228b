// Takes the memory from strdup: while one lives, it answers null with ENOMEM.
#pragma once

class failing_strdup {
  public:
    failing_strdup();
    ~failing_strdup();
    failing_strdup(const failing_strdup&) = delete;
    failing_strdup& operator=(const failing_strdup&) = delete;
};
