#include "Snmp/AgentxSubagent.h"

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/library/large_fd_set.h>
// clang-format on

#include <fnmatch.h>
#include <sys/time.h>

#include <cstdlib>
#include <cstring>

#include "Framework/Trace.h"

namespace Snmp {

namespace {

Vel::Trace::Handle traceLldpSnmp("LldpSnmp");

constexpr const char* appName = "lldp-agent";
// net-snmp insists on a directory for its state even when told to keep none; it may
// create it (empty), nothing is written into it.
constexpr const char* persistentDir = "/run/lldp-agent-snmp";

AgentxSubagent* theSubagent = nullptr;

// net-snmp's own messages go to our trace: errors at level 0, notices at 2, the rest at 4.
int logToTrace(int, int, void* serverArg, void*) {
   const auto* m = static_cast<const snmp_log_message*>(serverArg);
   if (!m || !m->msg) return 0;
   std::string_view text(m->msg);
   while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
   const int level = m->priority <= LOG_ERR ? 0 : m->priority <= LOG_NOTICE ? 2 : 4;
   VEL_TRACE(traceLldpSnmp, level, "net-snmp: " << text);
   return 0;
}

bool toOid(const oid* name, size_t len, Oid& out) {
   out.len = 0;
   for (size_t i = 0; i < len; ++i) {
      if (name[i] > 0xffffffffUL || !out.push(static_cast<uint32_t>(name[i]))) return false;
   }
   return true;
}

void setValue(netsnmp_variable_list* vb, const Value& v) {
   switch (v.type) {
      case Asn::integer: {
         const long n = static_cast<long>(v.num);
         snmp_set_var_typed_value(vb, ASN_INTEGER, &n, sizeof(n));
         break;
      }
      case Asn::counter32:
      case Asn::gauge32:
      case Asn::timeTicks: {
         const u_long n = static_cast<u_long>(v.num & 0xffffffff);
         snmp_set_var_typed_value(vb, static_cast<u_char>(v.type), &n, sizeof(n));
         break;
      }
      case Asn::octetString: {
         const std::string_view b = v.bytes();
         snmp_set_var_typed_value(vb, ASN_OCTET_STR, b.data(), b.size());
         break;
      }
      case Asn::objectId: {
         // An empty OID (none was received or configured) reads as 0.0.
         oid ids[Snmp::ObjectIdentifier::maxSubIds] = {0, 0};
         size_t n = 2;
         if (v.oid && v.oid->size() >= 2) {
            n = v.oid->size();
            for (size_t i = 0; i < n; ++i) ids[i] = (*v.oid)[i];
         }
         snmp_set_var_typed_value(vb, ASN_OBJECT_ID, ids, n * sizeof(oid));
         break;
      }
   }
}

int handleRequests(netsnmp_mib_handler*, netsnmp_handler_registration* reginfo,
                   netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
   if (!theSubagent) return SNMP_ERR_GENERR;
   const MibTree& tree = theSubagent->tree();
   Oid name, next;
   Value value;
   for (netsnmp_request_info* r = requests; r; r = r->next) {
      if (r->processed) continue;
      netsnmp_variable_list* vb = r->requestvb;
      const bool valid = toOid(vb->name, vb->name_length, name);
      switch (reqinfo->mode) {
         case MODE_GET:
            if (valid && tree.get(name, value)) {
               setValue(vb, value);
            } else {
               netsnmp_set_request_error(reqinfo, r, SNMP_NOSUCHINSTANCE);
            }
            break;
         case MODE_GETNEXT:
            // Nothing after it here: left unanswered, the agent goes on past our subtree.
            if (valid && tree.getNext(name, next, value)) {
               oid ids[Oid::maxLen];
               for (size_t i = 0; i < next.len; ++i) ids[i] = next.id[i];
               snmp_set_var_objid(vb, ids, next.len);
               setValue(vb, value);
            }
            break;
         default:
            // Everything is read-only.
            netsnmp_set_request_error(reqinfo, r, SNMP_ERR_NOTWRITABLE);
            break;
      }
   }
   (void)reginfo;
   return SNMP_ERR_NOERROR;
}

bool matchesPattern(const Wire::IntfId& intf, const void* ctx) {
   const auto* pattern = static_cast<const std::string*>(ctx);
   return !pattern->empty() &&
          ::fnmatch(pattern->c_str(), std::string(intf.name()).c_str(), 0) == 0;
}

}  // namespace

std::unique_ptr<AgentxSubagent> AgentxSubagent::start(const SubagentOptions& options,
                                                      Vel::StateDb& db) {
   if (theSubagent) return nullptr;
   return std::unique_ptr<AgentxSubagent>(new AgentxSubagent(options, db));
}

AgentxSubagent::AgentxSubagent(const SubagentOptions& options, Vel::StateDb& db)
    : options_(options),
      source_(db, Vel::EventLoop::instance().now()),
      timer_([this] { handleTimeout(); }),
      alive_(std::make_shared<bool>(true)) {
   theSubagent = this;
   source_.settings().notificationInterval = options_.notifyInterval;
   source_.settings().notificationEnabled = matchesPattern;
   source_.settings().notificationCtx = &options_.notifyPattern;
   tree_ = std::make_unique<MibTree>(source_);

   // Our messages go to the trace, not to standard error or syslog.
   snmp_disable_log();
   netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_DEBUG);
   snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, logToTrace, nullptr);

   // A subagent that reads no configuration files, loads no MIB files, keeps no state on
   // disk and uses no signals: timers are ours (snmp_select_info reports them).
   netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
   netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET,
                         options_.socket.c_str());
   netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
   netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
   netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
   netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
   netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, persistentDir);
   netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
   netsnmp_set_mib_directory("");
   ::setenv("MIBS", "", 0);

   init_agent(appName);
   // Set after init_agent, which resets it: how often to look for a missing master.
   netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL, 1);
   const Oid& root = MibTree::root();
   oid rootIds[Oid::maxLen];
   for (size_t i = 0; i < root.len; ++i) rootIds[i] = root.id[i];
   netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
       "lldpMIB", handleRequests, rootIds, root.len, HANDLER_CAN_RONLY);
   netsnmp_register_handler(reg);
   init_snmp(appName);
   VEL_TRACE(traceLldpSnmp, 2,
             "AgentX subagent started on " << options_.socket << ", " << tree_->objectCount()
                                           << " objects");

   notifier_ = std::make_unique<RemTablesNotifier>(
       source_, [this](uint32_t i, uint32_t d, uint32_t dr, uint32_t a) {
          doSendNotification(i, d, dr, a);
       });
   scheduleSync();
}

AgentxSubagent::~AgentxSubagent() {
   *alive_ = false;
   notifier_.reset();
   reactors_.clear();
   // Nothing more to the trace: net-snmp logs while it holds the lock that our log
   // callback would need.
   snmp_disable_log();
   snmp_shutdown(appName);
   shutdown_agent();
   theSubagent = nullptr;
}

// After anything net-snmp did, its set of descriptors and its next timeout may have
// changed (a connection made or lost): bring the loop's view in line.
void AgentxSubagent::scheduleSync() {
   if (syncPosted_) return;
   syncPosted_ = true;
   std::weak_ptr<bool> alive = alive_;
   Vel::EventLoop::instance().post([this, alive] {
      if (alive.expired() || !*alive.lock()) return;
      syncPosted_ = false;
      doSync();
   });
}

void AgentxSubagent::doSync() {
   int numfds = 0;
   netsnmp_large_fd_set fds;
   netsnmp_large_fd_set_init(&fds, FD_SETSIZE);
   NETSNMP_LARGE_FD_ZERO(&fds);
   timeval tv = {0, 0};
   int block = 1;
   snmp_select_info2(&numfds, &fds, &tv, &block);
   for (auto it = reactors_.begin(); it != reactors_.end();) {
      if (it->first >= numfds || !NETSNMP_LARGE_FD_ISSET(it->first, &fds)) {
         it = reactors_.erase(it);
      } else {
         ++it;
      }
   }
   for (int fd = 0; fd < numfds; ++fd) {
      if (!NETSNMP_LARGE_FD_ISSET(fd, &fds) || reactors_.count(fd)) continue;
      reactors_[fd] = std::make_unique<Vel::FdReactor>(fd, [this, fd] { handleReadable(fd); });
   }
   netsnmp_large_fd_set_cleanup(&fds);
   const Vel::Seconds now = Vel::EventLoop::instance().now();
   VEL_TRACE(traceLldpSnmp, 8,
             "AgentxSubagent::doSync(): "
                 << reactors_.size() << " descriptors, "
                 << (block ? std::string("no timeout")
                           : std::to_string(tv.tv_sec) + "." + std::to_string(tv.tv_usec) + " s"));
   timer_.timeMinIs(block ? Vel::never : now + double(tv.tv_sec) + double(tv.tv_usec) / 1e6);
}

void AgentxSubagent::handleReadable(int fd) {
   netsnmp_large_fd_set fds;
   netsnmp_large_fd_set_init(&fds, fd + 1);
   NETSNMP_LARGE_FD_ZERO(&fds);
   NETSNMP_LARGE_FD_SET(fd, &fds);
   snmp_read2(&fds);
   netsnmp_large_fd_set_cleanup(&fds);
   netsnmp_check_outstanding_agent_requests();
   scheduleSync();
}

void AgentxSubagent::handleTimeout() {
   snmp_timeout();
   run_alarms();
   netsnmp_check_outstanding_agent_requests();
   scheduleSync();
}

void AgentxSubagent::doSendNotification(uint32_t inserts, uint32_t deletes, uint32_t drops,
                                        uint32_t ageouts) {
   static const oid snmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
   static const oid remTablesChange[] = {1, 0, 8802, 1, 1, 2, 0, 0, 1};
   netsnmp_variable_list* vars = nullptr;
   snmp_varlist_add_variable(&vars, snmpTrapOid, OID_LENGTH(snmpTrapOid), ASN_OBJECT_ID,
                             remTablesChange, sizeof(remTablesChange));
   const uint32_t counters[4] = {inserts, deletes, drops, ageouts};
   for (uint32_t i = 0; i < 4; ++i) {
      // lldpStatsRemTablesInserts.0 .. lldpStatsRemTablesAgeouts.0
      const oid name[] = {1, 0, 8802, 1, 1, 2, 1, 2, 2 + i, 0};
      const u_long v = counters[i];
      snmp_varlist_add_variable(&vars, name, OID_LENGTH(name), ASN_GAUGE, &v, sizeof(v));
   }
   send_v2trap(vars);
   snmp_free_varbind(vars);
   VEL_TRACE(traceLldpSnmp, 4,
             "lldpRemTablesChange sent: inserts " << inserts << " deletes " << deletes << " drops "
                                                  << drops << " ageouts " << ageouts);
   scheduleSync();
}

}  // namespace Snmp
