// Certificates from files, as DER.
#pragma once

#include <string>
#include <vector>

struct CertificateFile {
  std::string path;
  std::string der;
};

// Of the Debian package ca-certificates.
const char kDebianRootsFolder[] = "/usr/share/ca-certificates";
std::vector<CertificateFile> DebianRoots();

// Every file of a folder and those in it, as it is, in the order of their names.
std::vector<CertificateFile> CertificatesIn(const std::string& folder);
