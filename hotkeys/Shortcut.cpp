#include "hotkeys/Shortcut.h"

#include "platform/VirtualKeys.h"

#include <QKeyEvent>

namespace Hotkeys {

namespace {

struct ModifierPair {
    std::int64_t carbonBit;
    EventFlags eventFlag;
};

constexpr ModifierPair modifierPairs[] = {
    {carbon::command, eventflags::command},   {carbon::shift, eventflags::shift},
    {carbon::option, eventflags::option},     {carbon::control, eventflags::control},
    {carbon::function, eventflags::function},
};

} // namespace

std::int64_t toCarbon(EventFlags flags) {
    std::int64_t carbonModifiers = 0;
    for (const auto& pair : modifierPairs) {
        if (flags & pair.eventFlag)
            carbonModifiers |= pair.carbonBit;
    }
    return carbonModifiers;
}

EventFlags fromCarbon(std::int64_t carbonModifiers) {
    EventFlags flags = 0;
    for (const auto& pair : modifierPairs) {
        if (carbonModifiers & pair.carbonBit)
            flags |= pair.eventFlag;
    }
    return flags;
}

constexpr Key Key::a{0};
constexpr Key Key::b{11};
constexpr Key Key::c{8};
constexpr Key Key::d{2};
constexpr Key Key::e{14};
constexpr Key Key::f{3};
constexpr Key Key::g{5};
constexpr Key Key::h{4};
constexpr Key Key::i{34};
constexpr Key Key::j{38};
constexpr Key Key::k{40};
constexpr Key Key::l{37};
constexpr Key Key::m{46};
constexpr Key Key::n{45};
constexpr Key Key::o{31};
constexpr Key Key::p{35};
constexpr Key Key::q{12};
constexpr Key Key::r{15};
constexpr Key Key::s{1};
constexpr Key Key::t{17};
constexpr Key Key::u{32};
constexpr Key Key::v{9};
constexpr Key Key::w{13};
constexpr Key Key::x{7};
constexpr Key Key::y{16};
constexpr Key Key::z{6};
constexpr Key Key::zero{29};
constexpr Key Key::one{18};
constexpr Key Key::two{19};
constexpr Key Key::three{20};
constexpr Key Key::four{21};
constexpr Key Key::five{23};
constexpr Key Key::six{22};
constexpr Key Key::seven{26};
constexpr Key Key::eight{28};
constexpr Key Key::nine{25};
constexpr Key Key::capsLock{57};
constexpr Key Key::shift{56};
constexpr Key Key::function{63};
constexpr Key Key::control{59};
constexpr Key Key::option{58};
constexpr Key Key::command{55};
constexpr Key Key::rightCommand{54};
constexpr Key Key::rightOption{61};
constexpr Key Key::rightControl{62};
constexpr Key Key::rightShift{60};
constexpr Key Key::returnKey{36};
constexpr Key Key::backslash{42};
constexpr Key Key::backtick{50};
constexpr Key Key::comma{43};
constexpr Key Key::equal{24};
constexpr Key Key::minus{27};
constexpr Key Key::period{47};
constexpr Key Key::quote{39};
constexpr Key Key::semicolon{41};
constexpr Key Key::slash{44};
constexpr Key Key::space{49};
constexpr Key Key::tab{48};
constexpr Key Key::leftBracket{33};
constexpr Key Key::rightBracket{30};
constexpr Key Key::pageUp{116};
constexpr Key Key::pageDown{121};
constexpr Key Key::home{115};
constexpr Key Key::end{119};
constexpr Key Key::upArrow{126};
constexpr Key Key::rightArrow{124};
constexpr Key Key::downArrow{125};
constexpr Key Key::leftArrow{123};
constexpr Key Key::escape{53};
constexpr Key Key::deleteKey{51};
constexpr Key Key::deleteForward{117};
constexpr Key Key::help{114};
constexpr Key Key::mute{74};
constexpr Key Key::volumeUp{72};
constexpr Key Key::volumeDown{73};
constexpr Key Key::f1{122};
constexpr Key Key::f2{120};
constexpr Key Key::f3{99};
constexpr Key Key::f4{118};
constexpr Key Key::f5{96};
constexpr Key Key::f6{97};
constexpr Key Key::f7{98};
constexpr Key Key::f8{100};
constexpr Key Key::f9{101};
constexpr Key Key::f10{109};
constexpr Key Key::f11{103};
constexpr Key Key::f12{111};
constexpr Key Key::f13{105};
constexpr Key Key::f14{107};
constexpr Key Key::f15{113};
constexpr Key Key::f16{106};
constexpr Key Key::f17{64};
constexpr Key Key::f18{79};
constexpr Key Key::f19{80};
constexpr Key Key::f20{90};
constexpr Key Key::keypad0{82};
constexpr Key Key::keypad1{83};
constexpr Key Key::keypad2{84};
constexpr Key Key::keypad3{85};
constexpr Key Key::keypad4{86};
constexpr Key Key::keypad5{87};
constexpr Key Key::keypad6{88};
constexpr Key Key::keypad7{89};
constexpr Key Key::keypad8{91};
constexpr Key Key::keypad9{92};
constexpr Key Key::keypadClear{71};
constexpr Key Key::keypadDecimal{65};
constexpr Key Key::keypadDivide{75};
constexpr Key Key::keypadEnter{76};
constexpr Key Key::keypadEquals{81};
constexpr Key Key::keypadMinus{78};
constexpr Key Key::keypadMultiply{67};
constexpr Key Key::keypadPlus{69};

constexpr std::array<Key, 113> Key::all{a,
                                        b,
                                        c,
                                        d,
                                        e,
                                        f,
                                        g,
                                        h,
                                        i,
                                        j,
                                        k,
                                        l,
                                        m,
                                        n,
                                        o,
                                        p,
                                        q,
                                        r,
                                        s,
                                        t,
                                        u,
                                        v,
                                        w,
                                        x,
                                        y,
                                        z,
                                        zero,
                                        one,
                                        two,
                                        three,
                                        four,
                                        five,
                                        six,
                                        seven,
                                        eight,
                                        nine,
                                        capsLock,
                                        shift,
                                        function,
                                        control,
                                        option,
                                        command,
                                        rightCommand,
                                        rightOption,
                                        rightControl,
                                        rightShift,
                                        returnKey,
                                        backslash,
                                        backtick,
                                        comma,
                                        equal,
                                        minus,
                                        period,
                                        quote,
                                        semicolon,
                                        slash,
                                        space,
                                        tab,
                                        leftBracket,
                                        rightBracket,
                                        pageUp,
                                        pageDown,
                                        home,
                                        end,
                                        upArrow,
                                        rightArrow,
                                        downArrow,
                                        leftArrow,
                                        escape,
                                        deleteKey,
                                        deleteForward,
                                        help,
                                        mute,
                                        volumeUp,
                                        volumeDown,
                                        f1,
                                        f2,
                                        f3,
                                        f4,
                                        f5,
                                        f6,
                                        f7,
                                        f8,
                                        f9,
                                        f10,
                                        f11,
                                        f12,
                                        f13,
                                        f14,
                                        f15,
                                        f16,
                                        f17,
                                        f18,
                                        f19,
                                        f20,
                                        keypad0,
                                        keypad1,
                                        keypad2,
                                        keypad3,
                                        keypad4,
                                        keypad5,
                                        keypad6,
                                        keypad7,
                                        keypad8,
                                        keypad9,
                                        keypadClear,
                                        keypadDecimal,
                                        keypadDivide,
                                        keypadEnter,
                                        keypadEquals,
                                        keypadMinus,
                                        keypadMultiply,
                                        keypadPlus};

Shortcut::Shortcut(Key key, EventFlags modifiers)
    : carbonKeyCode(key.rawValue), carbonModifiers(toCarbon(fromCarbon(toCarbon(modifiers)))) {}

std::optional<Shortcut> Shortcut::fromEvent(const KeyEvent& event) {
    if (event.type != KeyEvent::keyDownType && event.type != KeyEvent::keyUpType)
        return std::nullopt;
    return Shortcut(Key{event.keyCode}, event.modifierFlags & ~eventflags::function);
}

std::optional<Shortcut> Shortcut::fromEvent(const QKeyEvent& event) {
    KeyEvent keyEvent;
    if (event.type() == QEvent::KeyPress)
        keyEvent.type = KeyEvent::keyDownType;
    else if (event.type() == QEvent::KeyRelease)
        keyEvent.type = KeyEvent::keyUpType;
    else
        return std::nullopt;
    const auto virtualKey =
        platform::virtualKeyFromQt(event.key(), event.modifiers(), event.nativeScanCode());
    if (!virtualKey)
        return std::nullopt;
    keyEvent.keyCode = *virtualKey;
    keyEvent.modifierFlags = platform::eventFlagsFromQt(event.modifiers());
    return fromEvent(keyEvent);
}

} // namespace Hotkeys
