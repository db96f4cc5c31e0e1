#include "cli/options/table/OptionGroups.h"
#include "cli/options/table/OptionValues.h"

namespace netrove::cli {

namespace {

// clang-format off
const OptionRow kTlsOptions[] = {
    {"ca-file", 0, "FILE", kTransfers, "PEM file of certificates to trust in addition to those in the system's folder",
     [](S& s, V v) { s.CaFile = nonEmpty("ca-file", v); }, {.OtherNames = "cacert ca-certificate"}},
    {"no-verify", 'k', "", kTransfers, "accept any certificate: anyone on the path can read and change everything",
     [](S& s, V) { s.VerifyPeer = false; }, {.OtherNames = "insecure no-check-certificate", .Common = kTransfers}},
    {"no-verify-name", 0, "", kTransfers, "accept a trusted certificate for another host name: its owner can pose as the server",
     [](S& s, V) { s.VerifyName = false; }},
};
// clang-format on

} // namespace

std::span<const OptionRow> tlsOptions() {
    return kTlsOptions;
}

} // namespace netrove::cli
