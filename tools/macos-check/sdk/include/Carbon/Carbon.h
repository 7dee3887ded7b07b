#pragma once
#import <Foundation/Foundation.h>
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef SInt32 OSStatus;
typedef UInt32 OSType, FourCharCode, OptionBits;
typedef unsigned long ByteCount, ItemCount;
typedef struct OpaqueEventRef *EventRef;
typedef struct OpaqueEventTargetRef *EventTargetRef;
typedef struct OpaqueEventHandlerRef *EventHandlerRef;
typedef struct OpaqueEventHandlerCallRef *EventHandlerCallRef;
typedef struct EventHotKeyRef_ *EventHotKeyRef;
struct EventTypeSpec
{
    OSType eventClass;
    UInt32 eventKind;
};
struct EventHotKeyID
{
    OSType signature;
    UInt32 id;
};
typedef OSType EventParamName;
typedef OSType EventParamType;
typedef OSStatus (*EventHandlerProcPtr)(EventHandlerCallRef, EventRef, void *);
typedef EventHandlerProcPtr EventHandlerUPP;
enum { cmdKey = 1 << 8, shiftKey = 1 << 9, optionKey = 1 << 11, controlKey = 1 << 12 };
enum { noErr = 0, eventNotHandledErr = -9874 };
enum { eventHotKeyExistsErr = -9878, eventHotKeyInvalidErr = -9879 };
enum { kEventClassKeyboard = 'keyb', kEventHotKeyPressed = 5 };
enum { kEventHotKeyExclusive = 1 };
enum { kEventParamDirectObject = '----', typeEventHotKeyID = 'hkid' };
SDK_EXTERN EventTargetRef GetApplicationEventTarget(void);
SDK_EXTERN OSStatus InstallEventHandler(EventTargetRef, EventHandlerUPP, ItemCount,
                                        const EventTypeSpec *, void *, EventHandlerRef *);
SDK_EXTERN OSStatus RemoveEventHandler(EventHandlerRef);
SDK_EXTERN OSStatus RegisterEventHotKey(UInt32, UInt32, EventHotKeyID, EventTargetRef, OptionBits,
                                        EventHotKeyRef *);
SDK_EXTERN OSStatus UnregisterEventHotKey(EventHotKeyRef);
SDK_EXTERN OSStatus GetEventParameter(EventRef, EventParamName, EventParamType, EventParamType *,
                                      ByteCount, ByteCount *, void *);
