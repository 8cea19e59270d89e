"""A phone's services, mocked on the system bus that the environment names.

Prints "ready" once all of them answer, and runs until it is killed with its process group.
"""
import signal
import subprocess

import dbus
import dbusmock

MODEM_MANAGER = "/org/freedesktop/ModemManager1"
GEOCLUE = "/org/freedesktop/GeoClue2"
NETWORK_MANAGER = "org.freedesktop.NetworkManager"


def spawn(name, path, interface):
    dbusmock.DBusTestCase.spawn_server(name, path, interface, system_bus=True,
                                       stdout=subprocess.DEVNULL)
    return dbusmock.DBusTestCase.get_dbus(True).get_object(name, path)


def spawn_template(template):
    return dbusmock.DBusTestCase.spawn_server_template(template, {}, subprocess.DEVNULL)[1]


def mock(proxy):
    return dbus.Interface(proxy, dbusmock.MOCK_IFACE)


def network_manager():
    manager = mock(spawn_template("networkmanager"))
    manager.AddEthernetDevice("eth0", "eth0", 30)
    device = manager.AddWiFiDevice("wlan0", "wlan0", 100)
    point = manager.AddAccessPoint(device, "ap0", "home", "00:11:22:33:44:55", 2, 2425, 5400, 82, 0)
    bus = dbusmock.DBusTestCase.get_dbus(True)
    mock(bus.get_object(NETWORK_MANAGER, device)).AddProperty(
        NETWORK_MANAGER + ".Device.Wireless", "ActiveAccessPoint", dbus.ObjectPath(point))


def upower():
    mock(spawn_template("upower")).SetupDisplayDevice(2, 1, 75.0, 10.0, 20.0, 1.0, 0, 60,
                                                      True, "battery", 1)


def modem_manager():
    manager = mock(spawn("org.freedesktop.ModemManager1", MODEM_MANAGER,
                         "org.freedesktop.DBus.ObjectManager"))
    interface = "org.freedesktop.ModemManager1.Modem"
    modem, sim = MODEM_MANAGER + "/Modem/0", MODEM_MANAGER + "/SIM/0"
    manager.AddMethod("", "GetManagedObjects", "", "a{oa{sa{sv}}}", f'''
ret = {{dbus.ObjectPath("{modem}"): {{"{interface}": {{
    "AccessTechnologies": dbus.UInt32(1 << 14), "Sim": dbus.ObjectPath("{sim}")}}}}}}''')
    manager.AddObject(sim, "org.freedesktop.ModemManager1.Sim",
                      {"OperatorName": "Telco", "OperatorIdentifier": "24001"}, [])


def geoclue():
    manager = mock(spawn("org.freedesktop.GeoClue2", GEOCLUE + "/Manager",
                         "org.freedesktop.GeoClue2.Manager"))
    client, place = GEOCLUE + "/Client/1", GEOCLUE + "/Client/1/Location/0"
    interface = "org.freedesktop.GeoClue2.Client"
    manager.AddMethod("", "GetClient", "", "o", f'ret = dbus.ObjectPath("{client}")')
    manager.AddObject(client, interface, {"DesktopId": "", "RequestedAccuracyLevel": dbus.UInt32(0)},
                      [("Start", "", "", f'''
self.EmitSignal("{interface}", "LocationUpdated", "oo",
                [dbus.ObjectPath("/"), dbus.ObjectPath("{place}")])'''),
                       ("Stop", "", "", "")])
    manager.AddObject(place, "org.freedesktop.GeoClue2.Location",
                      {"Latitude": 59.3293371, "Longitude": 18.0685808, "Speed": 1.25,
                       "Heading": 270.5, "Accuracy": 5.0}, [])


def main():
    for start in (network_manager, upower, modem_manager, geoclue):
        start()
    print("ready", flush=True)
    signal.pause()


main()
