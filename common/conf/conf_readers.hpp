// The typed readers' tables, one for each configuration file.
#pragma once

#include "common/conf/conf_scan.hpp"

namespace zep {

extern const ConfReader kConfNetwork;
extern const ConfReader kConfNetwork6;
extern const ConfReader kConfWireless;
extern const ConfReader kConfPppoe;
extern const ConfReader kConfDdns;
extern const ConfReader kConfGeneral;
extern const ConfReader kConfSystem;
extern const ConfReader kConfServerInfo;
extern const ConfReader kConfTimeZone;
extern const ConfReader kConfStorage;
extern const ConfReader kConfOsd;
extern const ConfReader kConfMotion;
extern const ConfReader kConfAudio;
extern const ConfReader kConfVideoDecoder;
extern const ConfReader kConfEvent;
extern const ConfReader kConfEventControl;
extern const ConfReader kConfControl;
extern const ConfReader kConfStream;
extern const ConfReader kConfWeb;
extern const ConfReader kConfMiddle;
extern const ConfReader kConfTcpServer;

} // namespace zep
