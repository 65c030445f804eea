// Transport security and write access for the gNMI server.
//
// Without --gnmi-tls-cert the server speaks plaintext, and only on a loopback address.
// With it, TLS; with --gnmi-tls-ca too, every client must present a certificate that CA
// signed (the handshake fails otherwise). Set is allowed to a client whose verified
// certificate's common name is one of --gnmi-write-cn, or to any client with
// --gnmi-allow-insecure-set; everything else only reads.
#pragma once

#include <grpcpp/security/server_credentials.h>
#include <grpcpp/server_context.h>

#include <memory>
#include <string>

#include "Gnmi/GnmiOptions.h"

namespace Gnmi {

// The server's credentials; null with the reason when a file cannot be read.
std::shared_ptr<grpc::ServerCredentials> serverCredentials(const Options& options,
                                                           std::string* error);

// Whether the caller of `context` may Set; `who` names it for the refusal and the trace.
// Called on gRPC's thread (it reads only the call's own authentication context).
bool mayWrite(const Options& options, const grpc::ServerContextBase& context, std::string* who);

}  // namespace Gnmi
