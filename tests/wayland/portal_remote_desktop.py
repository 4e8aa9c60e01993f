'''python-dbusmock template: the desktop portal's RemoteDesktop interface, version 2.

Follows org.freedesktop.portal.RemoteDesktop, .Request and .Session as their interface files
describe them, plus what version 2 added: SelectDevices takes persist_mode and restore_token,
and a Start with persist_mode other than 0 returns a new restore_token. Every call answers with a
Request handle built from the caller's unique name and its handle_token; the result comes later
as that Request's Response signal. Start grants the devices selected, unless the parameters
"start_response" (1 cancelled, 2 ended otherwise) or "granted_devices" say otherwise; the
parameter "device_types" is AvailableDeviceTypes (default 7: keyboard, pointer, touchscreen).

Mock methods for the tests: SetStart(u response, u granted_devices) (granted_devices 0xFFFFFFFF:
as selected); Keys() -> a(iu), the NotifyKeyboardKeycode calls so far; RestoreTokens() -> as,
the restore_token of each SelectDevices ('' when none); CloseSessions(), which closes every
session from the portal's side and emits Session.Closed.
'''
import dbus
from dbusmock import mockobject
from gi.repository import GLib

BUS_NAME = 'org.freedesktop.portal.Desktop'
MAIN_OBJ = '/org/freedesktop/portal/desktop'
MAIN_IFACE = 'org.freedesktop.portal.RemoteDesktop'
SYSTEM_BUS = False

REQUEST_IFACE = 'org.freedesktop.portal.Request'
SESSION_IFACE = 'org.freedesktop.portal.Session'
FAILED = 'org.freedesktop.portal.Error.Failed'
AS_SELECTED = 0xFFFFFFFF


def load(mock, parameters):
    mock.AddProperties(MAIN_IFACE, {
        'AvailableDeviceTypes': dbus.UInt32(parameters.get('device_types', 7)),
        'version': dbus.UInt32(2),
    })
    mock.start_response = dbus.UInt32(parameters.get('start_response', 0))
    mock.granted_devices = dbus.UInt32(parameters.get('granted_devices', AS_SELECTED))
    mock.sessions = {}  # path -> {'types', 'persist', 'started', 'devices'}
    mock.keys = []
    mock.restore_tokens = []
    mock.issued = 0


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


def _session(mock, path):
    if path not in mock.sessions:
        raise dbus.exceptions.DBusException('no such session', name=FAILED)
    return mock.sessions[path]


@dbus.service.method(MAIN_IFACE, in_signature='a{sv}', out_signature='o', sender_keyword='sender')
def CreateSession(self, options, sender=None):
    session = _handle('session', sender, options['session_handle_token'])
    self.sessions[session] = {'types': 7, 'persist': 0, 'started': False, 'devices': 0}
    self.AddObject(session, SESSION_IFACE, {'version': dbus.UInt32(1)},
                   [('Close', '', '', f'objects["{MAIN_OBJ}"].sessions.pop("{session}", None); '
                                      f'objects["{MAIN_OBJ}"].RemoveObject("{session}")')])
    return _respond(self, sender, options, 0, {'session_handle': dbus.ObjectPath(session)})


@dbus.service.method(MAIN_IFACE, in_signature='oa{sv}', out_signature='o', sender_keyword='sender')
def SelectDevices(self, session, options, sender=None):
    state = _session(self, session)
    if state['started']:
        raise dbus.exceptions.DBusException('session already started', name=FAILED)
    state['types'] = int(options.get('types', 7))
    state['persist'] = int(options.get('persist_mode', 0))
    self.restore_tokens.append(str(options.get('restore_token', '')))
    return _respond(self, sender, options, 0, {})


@dbus.service.method(MAIN_IFACE, in_signature='osa{sv}', out_signature='o', sender_keyword='sender')
def Start(self, session, _parent_window, options, sender=None):
    state = _session(self, session)
    if state['started']:
        raise dbus.exceptions.DBusException('session already started', name=FAILED)
    results = {}
    if self.start_response == 0:
        granted = state['types'] if self.granted_devices == AS_SELECTED else self.granted_devices
        state['started'] = True
        state['devices'] = granted
        results['devices'] = dbus.UInt32(granted)
        if state['persist'] != 0:
            self.issued += 1
            results['restore_token'] = f'restore-{self.issued}'
    return _respond(self, sender, options, self.start_response, results)


@dbus.service.method(MAIN_IFACE, in_signature='oa{sv}iu')
def NotifyKeyboardKeycode(self, session, _options, keycode, state):
    started = _session(self, session)
    if not started['started']:
        raise dbus.exceptions.DBusException('session is not started', name=FAILED)
    if not started['devices'] & 1:
        raise dbus.exceptions.DBusException('no keyboard in this session',
                                            name='org.freedesktop.portal.Error.NotAllowed')
    self.keys.append(dbus.Struct((keycode, state), signature='iu'))


@dbus.service.method(mockobject.MOCK_IFACE, in_signature='uu')
def SetStart(self, response, granted_devices):
    self.start_response = dbus.UInt32(response)
    self.granted_devices = dbus.UInt32(granted_devices)


@dbus.service.method(mockobject.MOCK_IFACE, out_signature='a(iu)')
def Keys(self):
    return dbus.Array(self.keys, signature='(iu)')


@dbus.service.method(mockobject.MOCK_IFACE, out_signature='as')
def RestoreTokens(self):
    return dbus.Array(self.restore_tokens, signature='s')


@dbus.service.method(mockobject.MOCK_IFACE)
def CloseSessions(self):
    for session in list(self.sessions):
        mockobject.objects[session].EmitSignal(SESSION_IFACE, 'Closed', 'a{sv}', [{}])
        self.RemoveObject(session)
    self.sessions.clear()
