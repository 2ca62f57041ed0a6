! A Fortran host through the installed module (include/vexa/vexa.f90): parses
! a force law, evaluates it over a grid of displacements with options, takes
! its exact gradient at one point and reads the library's answers back as
! Fortran strings. Stops with a non-zero code when anything is not as expected.
program fortran_host
  use vexa
  implicit none
  integer, parameter :: n = 5
  type(vexa_error) :: err
  type(vexa_options), target :: options
  type(vexa_report), target :: report
  type(c_ptr) :: force, bad
  real(c_double), target :: disp(n), vel(n), stiff(n), damp(n)
  real(c_double) :: forces(n), point(4), value, partials(4)
  type(c_ptr) :: columns(4)
  integer :: i

  force = vexa_parse("-STIFF*DISP-DAMP*VEL" // c_null_char, "DISP,VEL,STIFF,DAMP" // c_null_char, err)
  if (.not. c_associated(force)) then
    print '(a)', vexa_message(err)
    stop 1
  end if
  if (vexa_param_count(force) /= 4) stop 2
  if (vexa_string(vexa_param_name(force, 2_c_int)) /= 'STIFF') stop 8
  print '(2a)', 'vexa ', vexa_string(vexa_version())

  ! A list the interface refuses, with the reason.
  bad = vexa_parse("X1+1" // c_null_char, "X1,,Y" // c_null_char, err)
  if (c_associated(bad) .or. err%code /= VEXA_E_LIST) stop 9
  print '(a)', vexa_message(err)

  ! One column of values per parameter, in the final parameter order.
  do i = 1, n
    disp(i) = 0.001d0 * (i - 3)
  end do
  vel = 0.1d0
  stiff = 1.0d3
  damp = 10.0d0
  columns = [c_loc(disp), c_loc(vel), c_loc(stiff), c_loc(damp)]
  options%threads = 2
  if (vexa_eval_many_ex(force, int(n, c_size_t), columns, c_null_ptr, forces, c_loc(options), c_loc(report), &
                        err) /= VEXA_OK) then
    print '(a)', vexa_message(err)
    stop 3
  end if
  print '(a, 5f9.3)', 'forces:', forces
  if (report%failed /= 0) stop 10

  point = [disp(5), vel(5), stiff(5), damp(5)]
  if (vexa_eval(force, point, value, err) /= 0) stop 4
  ! The same bits as the bulk call's.
  if (transfer(value, 0_c_int64_t) /= transfer(forces(5), 0_c_int64_t)) stop 5

  ! d/dDISP = -STIFF, d/dVEL = -DAMP, d/dSTIFF = -DISP, d/dDAMP = -VEL.
  if (vexa_gradient(force, point, partials, err) /= 0) stop 6
  print '(a, 4f10.4)', 'gradient:', partials
  if (abs(partials(1) + 1.0d3) > 1.0d-12 .or. abs(partials(4) + 0.1d0) > 1.0d-12) stop 7

  call vexa_free(force)
  print '(a)', 'Fortran host: all as expected'
end program
