# SPDX-License-Identifier: MIT
#
# Completes the command line of iomap in fish. The addresses and names of registers are those of the
# running service; without a service there are none.

# The addresses and names of all registers, each with the argument behind it, and its type.
function __iomap_registers
    command iomap list --brief 2>/dev/null </dev/null | while read -d \t address type name
        printf '%s%s\t%s\n' $address "$argv" $type
        test -z "$name"; or printf '%s%s\t%s\n' $name "$argv" $type
    end
end

set -l types relay output_digital input_digital pullup input_counter input_analog rts cts \
    sensor_temp_value sensor_temp_address_lower sensor_temp_address_higher device_current \
    device_voltage cpu_temp uptime usb_enable color_led brightness_led hw_type fw_version \
    count_serials count_relays count_outputs count_inputs count_analog_outputs \
    count_analog_inputs pd5_detected enable_analog reserved virtual unknown
set -l subcommands list read write toggle info watch top status help
set -l seen __fish_seen_subcommand_from
set -l none "not $seen $subcommands"

complete -c iomap -f
complete -c iomap -n "$none" -a list -d 'Show every register and its value'
complete -c iomap -n "$none" -a read -d 'Print the values of registers'
complete -c iomap -n "$none" -a write -d 'Write registers'
complete -c iomap -n "$none" -a toggle -d 'Write 1 where 0 is, and 0 where 1 is'
complete -c iomap -n "$none" -a info -d 'Show type, index and maximum of registers'
complete -c iomap -n "$none" -a watch -d 'Print every change'
complete -c iomap -n "$none" -a top -d 'Show a table that follows the values'
complete -c iomap -n "$none" -a status -d 'Show whether the service runs'
complete -c iomap -n "$none" -a help -d 'Show the help of a subcommand'
complete -c iomap -n "$none" -l version -d 'Print the version'
complete -c iomap -l help -d 'Show the help'

complete -c iomap -n "$seen read toggle info watch" -a '(__iomap_registers)'
complete -c iomap -n "$seen write" -a '(__iomap_registers =)'
complete -c iomap -n "$seen help" -a "$subcommands"

complete -c iomap -n "$seen list watch top" -l type -x -a "$types" -d 'Only registers of this type'
complete -c iomap -n "$seen top" -l group -x -d 'Only registers of this group'
complete -c iomap -n "$seen list" -l brief -d 'Only address, type and name'
complete -c iomap -n "$seen list read write toggle watch" -l raw -d 'Without names and scales'
complete -c iomap -n "$seen list read write toggle info watch status" -l json -d 'Print JSON'
complete -c iomap -n "$seen read" -l wait -x -a '(__iomap_registers =)' -d 'Wait for a value'
complete -c iomap -n "$seen status" -l wait -x -d 'Wait for the service'
complete -c iomap -n "$seen status" -l strict -d 'Fail if a board is not well'
complete -c iomap -n "$seen status" -l map -r -F -d 'The map of the service'
complete -c iomap -n "$seen status" -l runtime-directory -r -F -d 'The runtime directory of the service'
complete -c iomap -n "$seen read watch" -l timeout -x -d 'End after this time'
complete -c iomap -n "$seen watch" -l count -x -d 'End after this many changes'
complete -c iomap -n "$seen watch" -l interval -x -d 'Read what is never announced this often'
complete -c iomap -n "$seen watch" -l initial -d 'Print the present values first'
complete -c iomap -n "$seen watch" -l changes -d 'Leave out equal values'
complete -c iomap -n "$seen watch" -l format -x -a 'text json csv' -d 'How a change is printed'
