#pragma once
#import <Foundation/Foundation.h>
#include <stdbool.h>
SDK_EXTERN bool CGPreflightScreenCaptureAccess(void);
SDK_EXTERN bool CGRequestScreenCaptureAccess(void);
typedef uint32_t CGWindowID;
typedef uint16_t CGKeyCode;
typedef struct __CGEvent *CGEventRef;
typedef struct __CGEventSource *CGEventSourceRef;
SDK_OPTIONS(uint32_t, CGWindowListOption){kCGWindowListOptionOnScreenOnly = 1 << 0};
SDK_ENUM(uint32_t, CGEventType){kCGEventLeftMouseDown = 1, kCGEventLeftMouseUp = 2,
                                kCGEventMouseMoved = 5};
SDK_ENUM(uint32_t, CGEventTapLocation){kCGHIDEventTap = 0};
SDK_ENUM(uint32_t, CGMouseButton){kCGMouseButtonLeft = 0};
SDK_EXTERN CFArrayRef CGWindowListCreate(CGWindowListOption, CGWindowID);
SDK_EXTERN CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef, CGKeyCode, bool);
SDK_EXTERN CGEventRef CGEventCreateMouseEvent(CGEventSourceRef, CGEventType, CGPoint,
                                              CGMouseButton);
SDK_EXTERN void CGEventPost(CGEventTapLocation, CGEventRef);
