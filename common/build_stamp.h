#ifndef COMMON_BUILD_STAMP_H
#define COMMON_BUILD_STAMP_H

/** The build stamp shown in the banner and logged by the upgrade applets. */
#define ZEP_BUILD_STAMP "2012.09.19-04:24+0000"

#endif
