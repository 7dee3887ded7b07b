#pragma once
#import <CoreGraphics/CoreGraphics.h>
#import <Foundation/Foundation.h>
SDK_EXTERN Boolean AXIsProcessTrusted(void);
