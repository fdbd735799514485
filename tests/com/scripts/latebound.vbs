' Members a script reaches only through late binding: a parameter array of subscripts, and the
' device's own conversions beside its IOrvexDevice members.

Dim node, device, setpoints, message, found, bytes

Set device = ConnectDefault(node)

BeginCase "SubElement with no subscripts is the element itself"
Set setpoints = device.Object(1).Variable("nciSetpoints").Element
Check setpoints.SubElement() Is setpoints, "SubElement()"
Check setpoints.SubElement Is setpoints, "SubElement without parentheses"
Check setpoints.SubElement("") Is setpoints, "an empty first subscript"

BeginCase "SubElement with one subscript"
CheckEqual setpoints.SubElement("standby_heat").Value, CSng(19), "a field by name"
CheckEqual setpoints.SubElement("STANDBY_HEAT").Value, CSng(19), "field names ignore case"

BeginCase "SubElement with several subscripts"
' "0 Normal": the third character of the alarm text is entry 2 of its character array.
Set message = device.Object(0).Variable("nvoAlarmMessage").Element
CheckEqual message.SubElement("ascii_", 2).Value, message.SubElement("ascii_").Value(2), _
    "a field and an entry give the entry"
CheckEqual CLng(message.SubElement("ascii_", 2).Value), CLng(Asc("N")), "the entry's value"
CheckEqual CLng(message.SubElement("ascii_", 0).Value), CLng(Asc("0")), "entry 0"
Dim index
index = 3
CheckEqual CLng(message.SubElement("ascii_", index).Value), CLng(Asc("o")), _
    "an entry held in a script variable (passed by reference)"
CheckEqual CLng(message.SubElement(Array("ascii_", 2)).Value), CLng(Asc("N")), _
    "one array holding the subscripts"
' The integer steps whole entries of the field's type: two temperatures on from standby cooling.
CheckEqual setpoints.SubElement("standby_cool", 2).Value, CSng(21), _
    "an index on a field that is no array"
' A dotted path is only taken as the first subscript; after another one it is skipped.
CheckEqual setpoints.SubElement("occupied_heat", "a.b").Value, CSng(21), "a later dotted path"

BeginCase "a sub-element from a parameter array writes the node's bytes"
message.SubElement("ascii_", 2).Value = Asc("W")
device.Object(0).Variable("nvoAlarmMessage").Download 0, True
CheckEqual Mid(node.Value("nvoAlarmMessage"), 1, 8), "3020576F", "the third byte is W now"

BeginCase "the device's own conversions beside its interface members"
CheckEqual device.PIUnsignedTwoBytesToSingle(1, 2), CSng(258), "high byte 1, low byte 2"
CheckEqual device.PIUnsignedTwoBytesToSingle(&H12, &HAB), CSng(4779), "two full bytes"
CheckEqual device.PIUnsignedTwoBytesToSingle(0, 0), CSng(0), "zero"
On Error Resume Next
found = device.PIUnsignedTwoBytesToSingle(256, 0)
CheckEqual Err.Number, CLng(6), "a high byte of 256 is no Byte: overflow"
Err.Clear
On Error GoTo 0
bytes = node.SaveConfiguration().Item("nciSetpoints.20").Value
CheckEqual VarType(bytes), vbArray + vbByte, "a host configuration value is an array of Byte"
CheckEqual device.PIConvertBinaryToHexString(bytes), node.Value("nciSetpoints"), _
    "bytes as hexadecimal text"
CheckEqual device.PIConvertBinaryToHexString("0102"), "", "a text is no byte stream"
CheckEqual device.PIConvertBinaryToHexString(Empty), "", "nor is Empty"
' The same object still answers its interface's members.
CheckEqual device.Connected, True, "Connected through the same object"
CheckEqual device.Info.State, "Configured/Online", "and its Info"

device.Disconnect
Finish
