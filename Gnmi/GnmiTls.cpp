#include "Gnmi/GnmiTls.h"

#include <grpcpp/security/auth_context.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace Gnmi {

namespace {

bool readFile(const std::string& path, std::string* out, std::string* error) {
   std::ifstream in(path);
   if (!in) {
      *error = "cannot read " + path;
      return false;
   }
   std::stringstream s;
   s << in.rdbuf();
   *out = s.str();
   if (out->empty()) {
      *error = path + " is empty";
      return false;
   }
   return true;
}

}  // namespace

std::shared_ptr<grpc::ServerCredentials> serverCredentials(const Options& options,
                                                           std::string* error) {
   if (options.tlsCert.empty()) return grpc::InsecureServerCredentials();
   grpc::SslServerCredentialsOptions ssl(
       options.tlsCa.empty() ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
                             : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
   grpc::SslServerCredentialsOptions::PemKeyCertPair pair;
   if (!readFile(options.tlsCert, &pair.cert_chain, error) ||
       !readFile(options.tlsKey, &pair.private_key, error)) {
      return nullptr;
   }
   ssl.pem_key_cert_pairs.push_back(std::move(pair));
   if (!options.tlsCa.empty() && !readFile(options.tlsCa, &ssl.pem_root_certs, error)) {
      return nullptr;
   }
   return grpc::SslServerCredentials(ssl);
}

bool mayWrite(const Options& options, const grpc::ServerContextBase& context, std::string* who) {
   *who = context.peer();
   std::string cn;
   const auto auth = context.auth_context();
   // A common name counts only from a certificate the handshake verified against our CA.
   if (auth && auth->IsPeerAuthenticated() && !options.tlsCa.empty()) {
      for (const auto& v : auth->FindPropertyValues("x509_common_name")) {
         cn.assign(v.data(), v.size());
      }
   }
   if (!cn.empty()) *who += " (CN " + cn + ")";
   if (options.allowInsecureSet) return true;
   return !cn.empty() &&
          std::find(options.writeCns.begin(), options.writeCns.end(), cn) != options.writeCns.end();
}

}  // namespace Gnmi
