// The value that reports one sample to the management service.
#pragma once

#include <atomic>
#include <cstdint>

namespace Corvane::Vaultaro::SL::CloudMgmt {

/// Bytes moved in one direction between two times. Reference-counted: a new value belongs to its
/// maker, who hands it to a ThrottlingBandwidth_var.
class ThrottlingBandwidth {
  public:
    uint32_t operation_type() const { return operation_type_; } ///< 0 read, 1 write
    uint32_t start_time() const { return start_time_; }         ///< seconds since the epoch
    uint32_t end_time() const { return end_time_; }             ///< seconds since the epoch
    uint64_t data_length() const { return data_length_; }       ///< bytes
    void operation_type(uint32_t value) { operation_type_ = value; }
    void start_time(uint32_t value) { start_time_ = value; }
    void end_time(uint32_t value) { end_time_ = value; }
    void data_length(uint64_t value) { data_length_ = value; }

    void _add_ref() { ++references_; }
    void _remove_ref() {
        if (--references_ == 0) {
            delete this;
        }
    }

  private:
    ~ThrottlingBandwidth() = default;

    std::atomic<unsigned> references_{1};
    uint32_t operation_type_ = 0;
    uint32_t start_time_ = 0;
    uint32_t end_time_ = 0;
    uint64_t data_length_ = 0;
};

/// Holds one reference of a value; null when empty.
class ThrottlingBandwidth_var {
  public:
    explicit ThrottlingBandwidth_var(ThrottlingBandwidth* value = nullptr) : value_(value) {}
    ThrottlingBandwidth_var(const ThrottlingBandwidth_var& other) : value_(other.value_) {
        if (value_ != nullptr) {
            value_->_add_ref();
        }
    }
    ThrottlingBandwidth_var& operator=(const ThrottlingBandwidth_var&) = delete;
    ~ThrottlingBandwidth_var() {
        if (value_ != nullptr) {
            value_->_remove_ref();
        }
    }
    ThrottlingBandwidth* operator->() const { return value_; }
    ThrottlingBandwidth* in() const { return value_; }

  private:
    ThrottlingBandwidth* value_;
};

} // namespace Corvane::Vaultaro::SL::CloudMgmt
