#pragma once
#import <Foundation/Foundation.h>
#include <stdbool.h>
SDK_EXTERN bool CGPreflightScreenCaptureAccess(void);
SDK_EXTERN bool CGRequestScreenCaptureAccess(void);
