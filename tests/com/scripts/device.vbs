' A host's first look at a controller: connect, identity, objects and variables, values.

Dim node, device, info, obj, variable, names, count, element

BeginCase "connect with Nothing and with an object that is no connection"
Set device = CreateObject("Vx.VxDef").CreateDeviceManager()
On Error Resume Next
device.Connect Nothing, Nothing
CheckError &H80040100, "Vx.CDevice.IOrvexDevice_Connect()", _
    "Not a supported network services interface", "Connect Nothing"
device.Connect CreateObject("Vx.VxDef"), Nothing
CheckError 13, "Vx", "Type mismatch", "Connect with a factory"
On Error GoTo 0
CheckEqual device.Connected, False, "still unconnected"

BeginCase "identity and state of the default controller"
Set device = ConnectDefault(node)
Set info = device.Info
CheckEqual device.Connected, True, "Connected"
CheckEqual info.NeuronID, "05-01-3C-7A-1F-02", "NeuronID"
CheckEqual info.ProgID, "91A5A581020404DC", "ProgID"
CheckEqual info.MfgID, "Orvex", "MfgID"
CheckEqual info.Revision, "2.10", "Revision"
CheckEqual info.State(False, False), "Configured/Online", "State"
CheckEqual info.State, "Configured/Online", "State without its optional arguments"
CheckEqual info.Name("20"), "VX-220 Room 2.14", "Name through the file directory"
CheckEqual device.Ping, True, "Ping"
node.Responding = False
CheckEqual device.Ping, False, "Ping of a silent node"
CheckEqual info.State(False, False), "Not Communicating", "State of a silent node"
node.Responding = True
CheckEqual device.Wink, True, "Wink"
CheckEqual node.WinkCount, CLng(1), "the node winked once"

BeginCase "For Each over objects and variables"
names = ""
count = 0
For Each obj In device
    names = names & obj.ID & " "
    For Each variable In obj
        count = count + 1
    Next
Next
CheckEqual names, "0 1 2 -1 ", "objects in the order they were made"
Check count > 30, "every variable is reached (" & count & ")"
CheckEqual device.Object(1).ProfileName <> "", True, "object 1 has a profile label"
Check device.Object(99) Is Nothing, "an unknown object is Nothing"
Check device.Object(1) Is device.Object(1), "the same object is the same COM object"
Check device.Object(1).Variable("nviSetpoint") Is device.Object(1).Variable("NVISETPOINT"), _
    "a variable is found without regard to case, as the same object"

BeginCase "values cross with their exact types"
Set obj = device.Object(1)
CheckEqual obj.Variable("nvoSpaceTemp").Value, CSng(21.35), "a scaled temperature is a Single"
CheckEqual obj.Variable("nvoSpaceTemp").Typedef.TypeName, "SNVT_temp_p", "its type"
CheckEqual obj.Variable("nviSpaceTemp").Undefined, True, "7FFF is the invalid temperature"
CheckEqual obj.Variable("nvoSpaceTemp").NvIndex, 12, "NvIndex is an Integer"
CheckEqual obj.Variable("nvoSpaceTemp").Category, CLng(512), "an output"

BeginCase "writing a value and a sub-element reaches the node on download"
Set variable = obj.Variable("nviSetpoint")
variable.Value = 22.5
CheckEqual variable.Value, CSng(22.5), "the value reads back"
variable.Download 0, True
CheckEqual node.Value("nviSetpoint"), "08CA", "the node holds 22.50 degC"
variable.Value = "21"
variable.Download
CheckEqual node.Value("nviSetpoint"), "0834", "a text converts as the platform converts it"
Set element = obj.Variable("nciSetpoints").Element
CheckEqual element.SubElement("occupied_heat").Value, CSng(21), "a structure field"
element.SubElement("occupied_heat").Value = 20.5
CheckEqual Mid(node.Value("nciSetpoints"), 13, 4), "0834", "not on the node before a download"
obj.Variable("nciSetpoints").Download 0, True
CheckEqual Mid(node.Value("nciSetpoints"), 13, 4), "0802", "occupied heat is 20.50 degC now"
CheckEqual device.ConfigModificationLevel >= 1, True, "the change raised the modification level"

BeginCase "an unknown variable name"
On Error Resume Next
Set variable = obj.Variable("nviNoSuchThing")
CheckError &H80040201, "Vx.CDeviceObjectIOrvexLonObject_Variable.()", _
    "nviNoSuchThing not found on object 1", "Variable of an unknown name"
On Error GoTo 0

device.Disconnect
CheckEqual device.Connected, False, "Disconnect"
Finish
