// Certificates for tests of TLS, made by OpenSSL's own program in a directory that is gone at the
// end. All files are in PEM form.
#pragma once

#include <string>

/// An authority, and a key of "localhost" that it has signed.
class certificates {
  public:
    /// `name` is the authority's.
    explicit certificates(const std::string& name);
    ~certificates();
    certificates(const certificates&) = delete;
    certificates& operator=(const certificates&) = delete;

    /// The authority's certificate.
    std::string authority() const { return directory_ + "/ca.pem"; }
    /// The key and its certificate.
    std::string key() const { return directory_ + "/own.pem"; }

  private:
    std::string directory_;
};
