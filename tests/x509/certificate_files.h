// Certificates from files, in DER.
#pragma once

#include <string>
#include <vector>

struct CertificateFile {
  std::string path;
  std::string der;
};

// The certificates of the Debian package ca-certificates.
const char kDebianRootsFolder[] = "/usr/share/ca-certificates";
std::vector<CertificateFile> DebianRoots();

// Returns the contents of every file in a folder and its subfolders, sorted by path.
std::vector<CertificateFile> CertificatesIn(const std::string& folder);
