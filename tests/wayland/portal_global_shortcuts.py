'''python-dbusmock template: the desktop portal's GlobalShortcuts interface (version 1).

Follows org.freedesktop.portal.GlobalShortcuts, .Request and .Session as their interface files
describe them: every call answers with a Request handle built from the caller's unique name and
its handle_token, and the result comes later as that Request's Response signal. A bind is granted
as preferred (trigger_description = preferred_trigger), unless the parameter "bind_response"
(1 cancelled, 2 ended otherwise) says the user refused it. Tests drive it through methods of
the mock interface: SetBindResponse(u); Fire(s signal, s shortcut_id), which emits Activated or
Deactivated for the last bound session; Rebind(s shortcut_id, s trigger_description), which emits
ShortcutsChanged as when the user picks other keys in the desktop's settings.
'''
import dbus
from dbusmock import mockobject
from gi.repository import GLib

BUS_NAME = 'org.freedesktop.portal.Desktop'
MAIN_OBJ = '/org/freedesktop/portal/desktop'
MAIN_IFACE = 'org.freedesktop.portal.GlobalShortcuts'
SYSTEM_BUS = False

REQUEST_IFACE = 'org.freedesktop.portal.Request'
SESSION_IFACE = 'org.freedesktop.portal.Session'


def load(mock, parameters):
    mock.AddProperties(MAIN_IFACE, {'version': dbus.UInt32(1)})
    mock.bind_response = dbus.UInt32(parameters.get('bind_response', 0))
    mock.bound_sessions = []


def _handle(kind, sender, token):
    return f'{MAIN_OBJ}/{kind}/{sender[1:].replace(".", "_")}/{token}'


def _respond(mock, sender, options, response, results):
    '''Makes the Request object and sends its Response after the method's reply.'''
    path = _handle('request', sender, options['handle_token'])
    mock.AddObject(path, REQUEST_IFACE, {}, [('Close', '', '', '')])

    def send():
        mockobject.objects[path].EmitSignal(REQUEST_IFACE, 'Response', 'ua{sv}',
                                            [dbus.UInt32(response), results])
        mock.RemoveObject(path)
        return False
    GLib.timeout_add(20, send)
    return dbus.ObjectPath(path)


@dbus.service.method(MAIN_IFACE, in_signature='a{sv}', out_signature='o', sender_keyword='sender')
def CreateSession(self, options, sender=None):
    session = _handle('session', sender, options['session_handle_token'])
    self.AddObject(session, SESSION_IFACE, {'version': dbus.UInt32(1)},
                   [('Close', '', '', f'objects["{MAIN_OBJ}"].RemoveObject("{session}")')])
    return _respond(self, sender, options, 0, {'session_handle': dbus.ObjectPath(session)})


@dbus.service.method(MAIN_IFACE, in_signature='oa(sa{sv})sa{sv}', out_signature='o',
                     sender_keyword='sender')
def BindShortcuts(self, session, shortcuts, _parent_window, options, sender=None):
    if session not in mockobject.objects:
        raise dbus.exceptions.DBusException('no such session',
                                            name='org.freedesktop.portal.Error.NotFound')
    if session in self.bound_sessions:
        raise dbus.exceptions.DBusException('a session binds once',
                                            name='org.freedesktop.portal.Error.Failed')
    self.bound_sessions.append(session)
    granted = dbus.Array([dbus.Struct((sid, {
        'description': props['description'],
        'trigger_description': props.get('preferred_trigger', ''),
    }), signature='sa{sv}') for sid, props in shortcuts], signature='(sa{sv})')
    results = {'shortcuts': granted} if self.bind_response == 0 else {}
    return _respond(self, sender, options, self.bind_response, results)


@dbus.service.method(mockobject.MOCK_IFACE, in_signature='u')
def SetBindResponse(self, response):
    self.bind_response = dbus.UInt32(response)


@dbus.service.method(mockobject.MOCK_IFACE, in_signature='ss')
def Fire(self, signal, shortcut_id):
    timestamp = dbus.UInt64(int(GLib.get_real_time()))
    self.EmitSignal(MAIN_IFACE, signal, 'osta{sv}',
                    [dbus.ObjectPath(self.bound_sessions[-1]), shortcut_id, timestamp, {}])


@dbus.service.method(mockobject.MOCK_IFACE, in_signature='ss')
def Rebind(self, shortcut_id, trigger_description):
    changed = dbus.Array([dbus.Struct((shortcut_id, {
        'description': 'changed in the settings',
        'trigger_description': trigger_description,
    }), signature='sa{sv}')], signature='(sa{sv})')
    self.EmitSignal(MAIN_IFACE, 'ShortcutsChanged', 'oa(sa{sv})',
                    [dbus.ObjectPath(self.bound_sessions[-1]), changed])
